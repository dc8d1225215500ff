// One walk over all records: what holds for every type, asked through the generic functions alone.
#include "Mroute/Mfib.h"
#include "Mroute/MfibBriskTypes.h"
#include "Vomo/GenericIf.h"

namespace {

using namespace Vomo;

// Storage for an object of a type that is known by its record alone.
class Object {
public:
    explicit Object(VomoType type)
        : type_(type), bytes_(new (std::align_val_t(16)) U8[type.row().size()]()) {
        methods().construct(bytes_, nullptr);
    }
    ~Object() {
        methods().destruct(bytes_);
        ::operator delete[](bytes_, std::align_val_t(16));
    }
    Object(Object const&) = delete;
    Object& operator=(Object const&) = delete;
    GenericRow const& generic() const { return type_.module->genericTable[type_.index]; }
    ValueMethods const& methods() const { return *generic().methods; }
    String text() const { return methods().strRep(bytes_, type_); }
    void textIs(String const& text) { methods().strepToValue(bytes_, text, type_); }
    void* get() const { return bytes_; }
    U32 op(void* out, VomoAttr attr, AttributeOp op, void* a = nullptr, void* b = nullptr) const {
        return generic().attributeOp(out, bytes_, attr, op, a, b);
    }

private:
    VomoType type_;
    U8* bytes_;
};

template <class Visit>
void everyValueType(Visit&& visit) {
    int count = 0;
    for (VomoModule const* module : modules())
        for (U16 i = 0; i < module->numTypes; ++i) {
            VomoType const type{module, i};
            if (type.isPolymorphic()) continue;
            SCOPED_TRACE(type.name());
            visit(type);
            ++count;
        }
    EXPECT_GE(count, 30);
}

TEST(AllTypes, AreFoundByName) {
    everyValueType([](VomoType type) { EXPECT_EQ(typeByName(type.name()), type); });
    EXPECT_TRUE(typeByName("Brisk::Multicast::Fib::Routes").isNull());
}

TEST(AllTypes, DefaultsPrintAndReadBack) {
    everyValueType([](VomoType type) {
        // Its parser takes only the kinds that it prints; the default's kind is among them.
        Object a(type), b(type);
        b.textIs(a.text());
        EXPECT_EQ(a.text(), b.text());
        bool equal = false;
        if (a.op(&equal, {}, AttributeOp::equal, b.get()) == 0) {
            EXPECT_TRUE(equal);
        }
        bool truth = true;
        if (a.op(&truth, {}, AttributeOp::truth) == 0) {
            EXPECT_FALSE(truth);
        }
    });
}

TEST(AllTypes, EveryAttributeAnswersGetOrCallAndNothingElseByAccident) {
    VomoAttr const foreign = attrByName(typeByName("Brisk::Multicast::Fib::Route"), "oifBitmap8");
    everyValueType([&](VomoType type) {
        Object object(type);
        alignas(16) U8 out[512] = {};
        TypeRow const& row = type.row();
        if (row.kind == TypeKind::enumeration) return;
        if (row.numAttributes < 30) {
            EXPECT_EQ(object.op(out, foreign, AttributeOp::get), 2U);
        }
        for (U16 i = 0; i < row.numAttributes; ++i) {
            VomoAttr const attr{type.module, static_cast<U16>(row.firstAttribute + i)};
            SCOPED_TRACE(attr.name());
            EXPECT_EQ(object.op(out, attr, AttributeOp::version), 1U);
            bool const isFunction = (attr.row().flags[0] & 0x10) != 0;
            EXPECT_EQ(object.op(out, attr, isFunction ? AttributeOp::get : AttributeOp::call), 1U);
            // Stored fields can be read; a string would need a constructed target.
            if (!attr.row().stored()) continue;
            bool const isString = builtinOfCode(attr.row().type) == 17;
            if (isString) new (out) String;
            EXPECT_EQ(object.op(out, attr, AttributeOp::get), 0U);
            bool const isMutable = attr.row().flags[1] == 0x9c || attr.row().flags[1] == 0x1c;
            String const before = object.text();
            EXPECT_EQ(object.op(nullptr, attr, AttributeOp::set, out), isMutable ? 0U : 1U);
            EXPECT_EQ(object.text(), before);
            if (isString) reinterpret_cast<String*>(out)->~String();
        }
    });
}

TEST(Generic, RouteByName) {
    VomoType const type = typeByName("Brisk::Multicast::Fib::Route");
    Object route(type);
    U32 version = 9;
    EXPECT_EQ(route.op(nullptr, attrByName(type, "version"), AttributeOp::set, &version), 0U);
    bool flag = true;
    EXPECT_EQ(route.op(nullptr, attrByName(type, "iifPmsi"), AttributeOp::set, &flag), 0U);
    Brisk::Multicast::Fib::OifIndex index(70), max(70), next;
    EXPECT_EQ(route.op(nullptr, attrByName(type, "oif"), AttributeOp::set, &index, &flag), 0U);
    EXPECT_EQ(route.op(nullptr, attrByName(type, "maxOifIndex"), AttributeOp::set, &max), 0U);
    Brisk::Multicast::Fib::OifIndex const none;
    void* const args[] = {const_cast<Brisk::Multicast::Fib::OifIndex*>(&none)};
    EXPECT_EQ(
        route.op(&next, attrByName(type, "nextOif"), AttributeOp::call, const_cast<void**>(args)),
        0U);
    EXPECT_EQ(next.value(), 70);
    auto const& typed = *static_cast<Brisk::Multicast::Fib::Route const*>(route.get());
    EXPECT_EQ(typed.version(), 9U);
    EXPECT_TRUE(typed.iifPmsi());
    EXPECT_EQ(typed.oifBitmap2(), 1U << 6);
    // A route has "and" and "xor", and no hash.
    Object difference(type);
    EXPECT_EQ(route.op(difference.get(), {}, AttributeOp::bitXor, route.get()), 0U);
    EXPECT_EQ(route.op(difference.get(), {}, AttributeOp::bitAnd, route.get()), 0U);
    EXPECT_EQ(route.op(difference.get(), {}, AttributeOp::bitOr, route.get()), 1U);
    EXPECT_THROW(route.methods().hash(route.get(), type), UnhashableException);
}

TEST(Generic, WrappersFlagSetsAndBases) {
    VomoType const rpa = typeByName("Routing::Multicast::Fib::RpaIndex");
    VomoType const bitIndex = typeByName("BitMapper::BitIndex");
    EXPECT_TRUE(VomoTypeBase::isDerived(rpa, bitIndex));
    EXPECT_FALSE(VomoTypeBase::isDerived(bitIndex, rpa));
    Object object(rpa);
    U16 value = 1;
    EXPECT_EQ(object.op(&value, attrByName(rpa, "value"), AttributeOp::get),
              0U); // the base answers
    EXPECT_EQ(value, 0);
    EXPECT_EQ(object.op(&value, attrByName(rpa, "null"), AttributeOp::get), 0U);
    EXPECT_EQ(value, 65535);
    EXPECT_EQ(object.methods().voidPtrIs(object.get(), rpa, bitIndex), object.get());
    EXPECT_THROW(object.methods().voidPtrIs(object.get(), bitIndex, rpa), TypeException);

    VomoType const flags = typeByName("Routing::Multicast::Fib::IntfFlags");
    Object set(flags), result(flags);
    bool on = true;
    EXPECT_EQ(set.op(nullptr, attrByName(flags, "frr"), AttributeOp::set, &on), 0U);
    U8 raw = 0;
    EXPECT_EQ(set.op(&raw, attrByName(flags, "value"), AttributeOp::get), 0U);
    EXPECT_EQ(raw, 32);
    EXPECT_EQ(set.op(result.get(), {}, AttributeOp::complement), 0U);
    EXPECT_EQ(*static_cast<U8*>(result.get()), 31);

    VomoType const oif = typeByName("Brisk::Multicast::Fib::OifIndex");
    Object index(oif);
    U16 tooBig = 513, good = 512;
    void* args[] = {&tooBig};
    EXPECT_THROW(index.generic().constructFromCtorArgs(index.get(), args), RangeException);
    args[0] = &good;
    index.generic().constructFromCtorArgs(index.get(), args);
    EXPECT_EQ(index.text(), "512");
}

} // namespace
