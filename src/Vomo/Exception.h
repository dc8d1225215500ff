// The framework's exceptions, and the functions that raise them: kept out of line so that who
// checks a value pays for one call.
#pragma once

#include "Dunlin/Exception.h"
#include "Vomo/Module.h"

#include <string_view>

namespace Vomo {

// Root of the framework's exceptions.
class Exception : public Dunlin::Exception {
    using Dunlin::Exception::Exception;
};
// A value outside what its type allows.
class RangeException : public Exception {
    using Exception::Exception;
};
// An object of another type than was asked for.
class TypeException : public Exception {
    using Exception::Exception;
};
class NoImplementationException : public Exception {
    using Exception::Exception;
};
// A damaged or truncated attribute log.
class AttrLogRecordException : public Exception {
    using Exception::Exception;
};
// A type without hash was asked for one.
class UnhashableException : public Exception {
    using Exception::Exception;
};
// Something a mutator or a factory does not take.
class ArgumentException : public Exception {
    using Exception::Exception;
};
// A text that is not of the form that is read.
class ParseException : public Exception {
public:
    ParseException(std::string const& text, U32 position, std::string wanted)
        : Exception(text), position_(position), wanted_(std::move(wanted)) {}
    // The character, counted from 0, at which the text is wrong.
    U32 position() const { return position_; }
    // What was wanted there.
    std::string const& wanted() const { return wanted_; }

private:
    U32 position_;
    std::string wanted_;
};

[[noreturn]] void throwRangeException(std::string_view text);
// `value` has bits that the flag set does not declare.
[[noreturn]] void throwDenseEnumBoolSetRangeException(VomoTypeBase type, U32 value);
// `ex` again, its text led by the attribute that was bad.
[[noreturn]] void rethrowFromDeserializeAttr(RangeException const& ex, char const* attrName);

} // namespace Vomo
