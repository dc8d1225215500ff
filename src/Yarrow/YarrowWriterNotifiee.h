// What the queue tells the table it belongs to.
#pragma once

namespace Yarrow {

class YarrowWriterNotifiee {
public:
    virtual ~YarrowWriterNotifiee() = default;
    // The readers have taken up the last move of slots: the table may shrink again. Called from
    // the event loop, never from inside an operation of the table.
    virtual void shrink() {}
    // Whether every connected reader has taken every change. Called from the event loop.
    virtual void handleQuiesced(bool /*quiesced*/) {}
};

} // namespace Yarrow
