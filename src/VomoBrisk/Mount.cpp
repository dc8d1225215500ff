#include "VomoBrisk/Mount.h"

#include "SharedMem/RootPath.h"

namespace VomoBrisk {
namespace {

// The parent of one mounted entity.
class Directory : public Vomo::Entity {
public:
    explicit Directory(Vomo::String const& path) : path_(path) {}
    Vomo::String name() const override { return path_; }

private:
    Vomo::String const path_;
};

[[noreturn]] void refuse(Vomo::Entity const& entity, Vomo::String const& path,
                         std::string const& why) {
    Dunlin::fmthrow<Dunlin::InvalidInitializeException>("cannot mount \"{}\" at \"{}\": {}",
                                                        std::string_view(entity.name()),
                                                        std::string_view(path), why);
}

Brisk::MapDescriptor settingsOf(CollectionInfo const& table, MountInfo const& info,
                                Brisk::MapDescriptor settings) {
    settings.initialSize = table.size();
    settings.type = static_cast<Brisk::BriskType>(info.type());
    return settings;
}

} // namespace

Mount::Mount(Vomo::Ptr<Vomo::Entity> const& entity, Vomo::String const& path, MountInfo const& info,
             Brisk::MapDescriptor const& settings) {
    Vomo::Ptr<TableOwner> const owner(dynamic_cast<TableOwner*>(entity.ptr()));
    if (!owner) refuse(*entity, path, "it owns no tables");
    for (CollectionInfo const& table : info.collectionInfo()) {
        if (owner->table(table.name()) == nullptr)
            refuse(*owner, path,
                   fmt::format("it has no table \"{}\"", std::string_view(table.name())));
        static_cast<void>(Mem::RootPath(path + "/" + table.name()));
    }
    directory_ = Vomo::newEntity<Directory>(Mem::RootPath(path).directoryName());
    owner->parentIs(directory_);
    entity_ = owner;
    try {
        for (CollectionInfo const& table : info.collectionInfo())
            owner->table(table.name())->init(settingsOf(table, info, settings));
    } catch (...) {
        unmount();
        throw;
    }
}

Mount::~Mount() {
    unmount();
}

void Mount::unmount() {
    if (!entity_) return;
    auto const entity = std::exchange(entity_, {});
    entity->parentIs(nullptr);
    directory_ = nullptr;
}

} // namespace VomoBrisk
