#include "Wren/WriterWrenSm.h"

namespace Wren {
namespace {
U32 lastTableId = 0;
}

struct WriterWrenSm::Impl {
    WriterQueue& queue;
    bool localMem;
};

WriterWrenSm::WriterWrenSm(Dunlin::Platform::DebugHandler& handler, WriterQueue& queue,
                           bool localMem)
    : Debuggable(handler), impl_(std::make_unique<Impl>(queue, localMem)), tableId_(++lastTableId) {
}
WriterWrenSm::~WriterWrenSm() = default;

void WriterWrenSm::doEnableListen() {
    impl_->queue.listening();
}
void WriterWrenSm::onDetach() {}
void WriterWrenSm::ring() {}
Sequence WriterWrenSm::slowest(Sequence ifNone) const {
    return ifNone;
}
bool WriterWrenSm::quiesced() const {
    return true;
}
bool WriterWrenSm::clientQuiesced(std::string const&) const {
    return false;
}
U32 WriterWrenSm::readers() const {
    return 0;
}

} // namespace Wren
