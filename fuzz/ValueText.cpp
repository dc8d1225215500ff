// Any text as the text form of any type: the first byte chooses the type. What parses prints a text
// that parses to the same again. The compact route key is left out: its parser takes only what it
// has printed itself. At the end the inputs that each type has had are told, and how many parsed.
#include "Dunlin/Util.h"
#include "Mroute/Mfib.h"
#include "Mroute/PortVlan.h"
#include "Vomo/GenericIf.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <new>
#include <unistd.h>

namespace {

using namespace Vomo;

std::vector<VomoType> const& types() {
    static auto const& list = *new std::vector<VomoType> const([] { // outlives the tally
        std::vector<VomoType> found;
        for (VomoModule const* module : modules())
            for (U16 i = 0; i < module->numTypes; ++i)
                if (VomoType const type{module, i};
                    !type.isPolymorphic() &&
                    type.name() != std::string_view("Routing::Multicast::Fib::RouteKey"))
                    found.push_back(type);
        return found;
    }());
    return list;
}

// Where the names of interfaces are entered; begun anew now and then, so that what the inputs leave
// there stays small.
class Names {
public:
    Names() : directory_(fmt::format("/tmp/fuzz-names.{}", ::getpid())) {
        Dunlin::Util::baseDirectoryIs(directory_);
    }
    ~Names() { std::filesystem::remove_all(directory_); }
    void forgetNowAndThen() {
        if (++inputs_ % 1024 == 0) std::filesystem::remove(directory_ + "/interface-names");
    }

private:
    std::string directory_;
    U64 inputs_ = 0;
};

struct Tally {
    struct Count {
        U64 inputs = 0, parsed = 0;
    };
    std::array<Count, 256> of{};
    ~Tally() {
        for (std::size_t i = 0; i < types().size(); ++i)
            fmt::print(stderr, "{:60}{:>12} inputs{:>12} parsed\n", types()[i].name(), of[i].inputs,
                       of[i].parsed);
    }
};

} // namespace

extern "C" std::size_t LLVMFuzzerMutate(U8* data, std::size_t size, std::size_t maxSize);

// Now and then begins with the text of a default value: few types are found by chance.
extern "C" std::size_t LLVMFuzzerCustomMutator(U8* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
    if (seed % 16 == 0 && maxSize > 1) {
        std::size_t const number = seed / 16 % types().size();
        VomoType const type = types()[number];
        ValueMethods const& methods = *type.module->genericTable[type.index].methods;
        alignas(16) U8 object[1024];
        methods.construct(object, nullptr);
        String const text = methods.strRep(object, type);
        methods.destruct(object);
        data[0] = static_cast<U8>(number);
        size = 1 + std::min(maxSize - 1, text.size());
        std::memcpy(data + 1, text.data(), size - 1);
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    // Makes the linker keep the library.
    static auto* const volatile linked = &Routing::Multicast::Fib::mountPath;
    (void)linked;
    if (size == 0) return 0;
    static Names names;
    static Tally tally; // tells at exit
    names.forgetNowAndThen();
    std::size_t const number = data[0] % types().size();
    Tally::Count& count = tally.of[number];
    ++count.inputs;
    VomoType const type = types()[number];
    ValueMethods const& methods = *type.module->genericTable[type.index].methods;
    alignas(16) static U8 object[1024], again[1024];
    methods.construct(object, nullptr);
    methods.construct(again, nullptr);
    try {
        methods.strepToValue(object, String(reinterpret_cast<char const*>(data + 1), size - 1),
                             type);
        ++count.parsed;
        String const text = methods.strRep(object, type);
        methods.strepToValue(again, text, type);
        if (methods.strRep(again, type) != text) std::abort();
    } catch (Vomo::Exception const&) {
    }
    methods.destruct(object);
    methods.destruct(again);
    return 0;
}
