// What stands in for a table that is not there: an empty one; one that must never be used; and a
// private scratch table for an entity without a path.
#pragma once

#include "Brisk/BriskMapBase.h"
#include "Brisk/BriskWriter.h"

namespace Brisk {

// What the two share: the name they go by, the word in the trace, and the implementation that they
// replaced, which they own so that a detach may run from inside one of that one's callbacks.
template <class OpsType>
class StandIn : public BriskInterface<OpsType> {
public:
    using Interface = BriskInterface<OpsType>;

    StandIn(Dunlin::Platform::DebugHandler& handler, std::string const& name, OpsType const& ops,
            std::unique_ptr<Interface> previous)
        : Interface(handler, ops), name_(name), rootPath_(name), previous_(std::move(previous)) {}
    // The former implementation may still be on the call stack.
    ~StandIn() override { retire(std::move(previous_)); }

    void detach(bool) override { told("detach"); }
    bool validate() override { return told("validate"), true; }
    bool validateFiles() override { return told("validateFiles"), true; }
    void cleanup() override {
        told("cleanup");
        if (previous_) previous_->cleanup();
    }
    void abandon() override {
        if (previous_) previous_->abandon();
    }
    Mem::YokeRootPath rootPath() const override { return rootPath_; }
    std::string briskName() const override { return name_; }

protected:
    void told(char const* what) const { FMTRACE(this->debugHandler(), 5, "{} {}", name_, what); }

    std::string const name_;
    Mem::YokeRootPath const rootPath_;

private:
    std::unique_ptr<Interface> previous_;
};

// An empty, read-only table.
template <class OpsType>
class BriskDummy : public StandIn<OpsType> {
public:
    using Ops = OpsType;
    using Interface = BriskInterface<Ops>;
    using typename Interface::Key;
    using typename Interface::Value;

    BriskDummy(Dunlin::Platform::DebugHandler& handler, std::string const& name, Ops const& ops,
               std::unique_ptr<Interface> previous = nullptr)
        : StandIn<Ops>(handler, name, ops, std::move(previous)) {}

    bool initialize(std::string const& event) override {
        FMTRACE(this->debugHandler(), 5, "{} event:{}", this->name_, event);
        return true;
    }
    Value const* lookup(Key const&, bool& found, void*) const override {
        found = false;
        return &Ops::type_default();
    }
    bool first(Value& value, IterHint&) const override {
        Ops::copyValue(&value, &Ops::type_default());
        return false;
    }
    bool next(Key const&, Value& value, IterHint& hint) const override {
        return first(value, hint);
    }
    U32 members() const override { return this->told("members"), 0; }
    U32 buckets() const override { return this->told("buckets"), 0; }
    U32 minSize() const override { return this->told("minSize"), 0; }
    U32 maxSize() const override { return this->told("maxSize"), 0; }
    U32 capacity() const override { return this->told("capacity"), 0; }
    BriskType type() const override { return this->told("type"), BriskType::reader; }
    Mem::MountStatus mountStatus() const override {
        return this->told("mountStatus"), Mem::MountStatus::unmounted;
    }
    Reader::Counters readerCounters() override {
        return this->told("readerCounters"), Reader::Counters{};
    }
    void validateVersionAnchor() const override {
        PLAINASSERT(false, "should never be called since it's impossible for a lookup to succeed");
    }
};

// Stands in for a collection whose entity is an orphan and whose owner declared that it must never
// be used: every access ends the process.
template <class OpsType>
class BriskStrictDummy : public StandIn<OpsType> {
public:
    using Ops = OpsType;
    using Interface = BriskInterface<Ops>;
    using typename Interface::Key;
    using typename Interface::Value;

    // `detail` stands at the end of every message.
    BriskStrictDummy(Dunlin::Platform::DebugHandler& handler, std::string const& name,
                     Ops const& ops, std::string detail,
                     std::unique_ptr<Interface> previous = nullptr)
        : StandIn<Ops>(handler, name, ops, std::move(previous)), detail_(std::move(detail)) {}

    bool initialize(std::string const& event) override {
        FMASSERT(false, "{} rootPath:{} event:{}{}", this->name_, this->rootPath_.text(), event,
                 detail_);
        return false;
    }
    Value const* lookup(Key const& key, bool&, void*) const override {
        return fail<Value const*>(key);
    }
    bool first(Value&, IterHint&) const override { return fail<bool>(); }
    bool next(Key const& key, Value&, IterHint&) const override { return fail<bool>(key); }
    U32 members() const override { return fail<U32>(); }
    U32 buckets() const override { return fail<U32>(); }
    U32 minSize() const override { return fail<U32>(); }
    U32 maxSize() const override { return fail<U32>(); }
    U32 capacity() const override { return fail<U32>(); }
    BriskType type() const override { return fail<BriskType>(); }
    Mem::MountStatus mountStatus() const override { return Mem::MountStatus::unmounted; }
    Reader::Counters readerCounters() override { return fail<Reader::Counters>(); }
    void validateVersionAnchor() const override { return fail<void>(); }

private:
    template <class Result>
    [[noreturn]] Result fail() const {
        Dunlin::assertionFormatted(__FILE__, __LINE__, "invoked, name:{} rootpath:{}{}",
                                   this->name_, this->rootPath_.text(), detail_);
    }
    template <class Result>
    [[noreturn]] Result fail(Key const& key) const {
        Dunlin::assertionFormatted(__FILE__, __LINE__, "invoked, name:{} rootpath:{} key:{}{}",
                                   this->name_, this->rootPath_.text(),
                                   Dunlin::dumpHex(&key, sizeof key), detail_);
    }

    std::string const detail_;
};

// A writer on private memory, for the while in which an entity has no path.
template <class OpsType>
class Tmp : public BriskWriter<OpsType> {
public:
    static MapDescriptor localDescriptor(U32 size) {
        MapDescriptor descriptor(size);
        descriptor.localMem = true;
        return descriptor;
    }
    Tmp(Dunlin::Platform::DebugHandler& handler, std::string const& name, U32 size,
        OpsType const& ops, std::string const& typeName)
        : BriskWriter<OpsType>(handler, name, localDescriptor(size), ops, typeName, Dunlin::noop) {}
    ~Tmp() override { this->detach(false); }

    Mem::MountStatus mountStatus() const override { return Mem::MountStatus::unmounted; }
};

} // namespace Brisk
