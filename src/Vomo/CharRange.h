// A cursor over text that is parsed. Never reads past its end: a range need not end in NUL.
#pragma once

#include "Vomo/String.h"

namespace Vomo {

class CharRange {
public:
    CharRange(char const* begin, char const* end) : start_(begin), begin_(begin), end_(end) {}
    explicit CharRange(std::string_view text) : CharRange(text.data(), text.data() + text.size()) {}

    char const* begin() const { return begin_; }
    char const* end() const { return end_; }
    U32 remainingSize() const { return static_cast<U32>(end_ - begin_); }
    std::string_view text() const { return {begin_, remainingSize()}; }
    // How many characters were consumed so far.
    U32 position() const { return static_cast<U32>(begin_ - start_); }

    // Consumes exactly `text`; raises ParseException, nothing consumed, if the range does not begin
    // with it.
    void needString(std::string_view text);
    // Consumes `text` if the range begins with it.
    bool haveString(std::string_view text);
    // Raises ParseException if anything is left.
    void checkAllDataConsumed() const;
    // Skips `v` characters, which must be there.
    CharRange& operator+=(U32 v);
    // Raises ParseException for the present position.
    [[noreturn]] void throwWanted(std::string_view wanted) const;

private:
    char const* start_;
    char const* begin_;
    char const* end_;
};

} // namespace Vomo
