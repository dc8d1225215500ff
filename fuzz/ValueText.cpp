// Any text as the text form of any type: the first byte chooses the type. What parses prints a text
// that parses to the same again. The compact route key is left out: its parser takes only what it
// has printed itself.
#include "Dunlin/Util.h"
#include "Mroute/Mfib.h"
#include "Mroute/PortVlan.h"
#include "Vomo/GenericIf.h"

#include <cstdlib>
#include <new>

namespace {

using namespace Vomo;

std::vector<VomoType> const& types() {
    static std::vector<VomoType> const list = [] {
        Dunlin::Util::baseDirectoryIs("/nonexistent"); // names of interfaces go to no file
        std::vector<VomoType> found;
        for (VomoModule const* module : modules())
            for (U16 i = 0; i < module->numTypes; ++i)
                if (VomoType const type{module, i};
                    !type.isPolymorphic() &&
                    type.name() != std::string_view("Routing::Multicast::Fib::RouteKey"))
                    found.push_back(type);
        return found;
    }();
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
    // Makes the linker keep the library.
    static auto* const volatile linked = &Routing::Multicast::Fib::mountPath;
    (void)linked;
    if (size == 0) return 0;
    VomoType const type = types()[data[0] % types().size()];
    ValueMethods const& methods = *type.module->genericTable[type.index].methods;
    alignas(16) static U8 object[1024], again[1024];
    methods.construct(object, nullptr);
    methods.construct(again, nullptr);
    try {
        methods.strepToValue(object, String(reinterpret_cast<char const*>(data + 1), size - 1),
                             type);
        String const text = methods.strRep(object, type);
        methods.strepToValue(again, text, type);
        if (methods.strRep(again, type) != text) std::abort();
    } catch (Vomo::Exception const&) {
    }
    methods.destruct(object);
    methods.destruct(again);
    return 0;
}
