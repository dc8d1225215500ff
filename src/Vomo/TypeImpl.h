// The functions of one type, a value or an entity, for whoever knows its class: those that the type's
// record points to. Vomo/Module.h says what each does.
#pragma once

#include "Vomo/EntityFrame.h"

namespace Vomo {

template <class T>
struct TypeImpl {
    using Sa = Entity::VomoNboAttrLogSa;

    static void genericIfConstructFromCtorArgs(void* to, void* const* args) {
        row().constructFromCtorArgs(to, args);
    }
    static U32 genericIfAttributeOp(void* out, void* object, VomoAttr attr,
                                    GenericIf::AttributeOp op, void* a, void* b) {
        return row().attributeOp(out, object, attr, op, a, b);
    }
    // Null for an attribute that is no collection.
    static void* genericIfIterator(void* object, void** key, VomoAttr attr,
                                   GenericIfRaw::Iterator::IteratorVTable const** methods) {
        return row().iterator == nullptr ? nullptr : row().iterator(object, key, attr, methods);
    }
    // The rest is of entities.
    static void* newEntityForDir(String const& name, void* args) {
        return row().newEntityForDir(name, args);
    }
    static Ptr<Entity> newEntityForAttrLog(NboAttrLog::In* in) {
        return row().stream->newEntityForAttrLog(in);
    }
    static Ptr<NboAttrLog::FlowOut> newFlowOut(Sa* sa, bool flag, U32 lastSynced) {
        return row().stream->newFlowOut(sa, flag, lastSynced);
    }
    static bool freeResyncState(Ptr<NboAttrLog::FlowOut> const& flow) {
        return row().stream->freeResyncState(flow);
    }
    static U32 attrLogSizeCtorParams(Entity const* entity) {
        return row().stream->attrLogSizeCtorParams(entity);
    }
    static void serializeConstructorParams(NboAttrLog::Out& out, Entity const* entity) {
        row().stream->serializeConstructorParams(out, entity);
    }
    static void vomoInstantiateSerialize(Sa* sa) {
        if (row().stream->vomoInstantiateSerialize != nullptr)
            row().stream->vomoInstantiateSerialize(sa);
    }
    static U32 handleAttrFlowOut(Sa* sa, U32 attrId) {
        return row().stream->handleAttrFlowOut(sa, attrId);
    }
    static bool doHandleAttrTransaction(Sa* sa, U32 attrId, U32 kind, bool flag) {
        return row().stream->doHandleAttrTransaction(sa, attrId, kind, flag);
    }
    static void doHandleAttrDeserialization(Sa* sa, S32 attrId, NboAttrLog::In* in) {
        row().stream->doHandleAttrDeserialization(sa, attrId, in);
    }
    static U32 streamAdapterOnAttribute(Sa* sa, U32 attrId, void const* key) {
        return row().stream->streamAdapterOnAttribute(sa, attrId, key);
    }

private:
    static GenericRow const& row() { return IdOf<T>::module->genericTable[IdOf<T>::index]; }
};

} // namespace Vomo
