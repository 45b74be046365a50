// Writing the archive of a package: the second half of Package::save, after the managers.
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opc/core/stream_adaptors.h>
#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/zip_item_names.h>

#include "../zip/replacement_file.h"
#include "content_types.h"
#include "eager_archive.h"
#include "package_lock.h"
#include "package_state.h"
#include "relationships_xml.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// One item of the new archive, in the order of writing.  A package of many parts has as many
// of these alive while the archive is written: a part's name and type are not copied here.
struct PlannedItem {
  // The part whose content this is, or null for a relationships part...
  std::shared_ptr<PartRecord> part;
  // ...whose name and set, to point it at the new archive afterwards, are these.
  std::unique_ptr<PartName> setName;
  RelationshipSet* relationships = nullptr;
  interfaces::CompressionType compression;
  // Either the raw bytes of an item of the current archive (held by the record or the set)...
  ZipEntry const* rawFrom = nullptr;
  // ...or new content.
  std::shared_ptr<PartContent const> content;
  // The archive item name to write under; see PartRecord::itemName.
  std::string itemName;
};

std::string itemNameFor(PartName const& name, std::string const& keptName) {
  return keptName.empty() ? toZipItemName(name) : keptName;
}

std::string itemNameFor(PartName const& name, std::string const* keptName) {
  return keptName ? *keptName : toZipItemName(name);
}

// A reader for ZipWriter::add that opens the content only when first asked, so that a
// package with many parts does not hold many readers at once.
ZipContentReader lazyReader(std::shared_ptr<PartContent const> content) {
  auto reader = std::make_shared<std::unique_ptr<ContentReader>>();
  return [content, reader](unsigned char* buffer, std::size_t size) -> std::size_t {
    if (!*reader) *reader = content->openReader();
    return (*reader)->read(buffer, size);
  };
}

using PlanSink = std::function<void(PlannedItem&&)>;

// Plans the relationships part of `set`, if it has one to write.  With `typesOnly` the item
// says only what the content types need: no content, no item name.
void planRelationships(PlanSink const& emit, RelationshipSet& set, PartName const& setName,
                       bool typesOnly) {
  if (set.entry && (!set.loaded || !set.changed)) {
    PlannedItem item{nullptr,
                     std::make_unique<PartName>(setName),
                     &set,
                     interfaces::CompressionType::DeflateMetadata,
                     &*set.entry,
                     nullptr,
                     itemNameFor(setName, set.itemName)};
    emit(std::move(item));
    return;
  }
  if (!set.loaded || set.relationships.empty()) return;
  if (typesOnly) {
    emit(PlannedItem{nullptr, std::make_unique<PartName>(setName), &set,
                     interfaces::CompressionType::DeflateMetadata, nullptr, nullptr,
                     std::string()});
    return;
  }
  std::vector<unsigned char> bytes;
  opc::ByteArrayOutAdaptor out(bytes);
  writeRelationships(set.relationships, out);
  PlannedItem item{nullptr,
                   std::make_unique<PartName>(setName),
                   &set,
                   interfaces::CompressionType::DeflateMetadata,
                   nullptr,
                   makeMemoryContent(std::move(bytes)),
                   itemNameFor(setName, set.itemName)};
  emit(std::move(item));
}

// Makes the item of `archive` under the record's name the source of its content.  Should the
// item not be there, a content read from `current` (the archive the record's entry is of, if
// it has one) takes the entry's place.
void pointAt(std::shared_ptr<ZipArchive const> const& archive,
             std::shared_ptr<ZipArchive const> const& current, PartRecord& record) {
  std::int64_t const index = archive->find(itemNameFor(record.name, record.itemName()));
  if (index < 0) {
    if (!record.content && record.entry()) {
      record.content = makeArchiveContent(current, *record.entry());
    }
    record.dropEntry();
    return;
  }
  record.setEntry(archive->entry(static_cast<std::size_t>(index)));
  record.content.reset();
}

}  // namespace

std::shared_ptr<EagerArchive> PackageState::eagerArchive() {
  // Only a new package made in a file, until its first save: a package that has an archive
  // (or a saved file not reopened yet) copies what did not change from it, which the archive
  // being written cannot do.
  if (inMemory_ || access_ != PackageAccess::Create || archive_ || reopenPending_) return nullptr;
  if (!eager_) {
    EagerArchive::Settings settings;
    settings.target = opc::detail::toUTF8String(path_);
    settings.threads = options_.compressionThreads;
    settings.reproducibleTime = options_.reproducibleTime;
    settings.prepare = [this, target = settings.target] {
      // As at save: the package's lock first, then the temporary files of a killed save.
      if (!lock_) lockFile("Could not save package " + label_);
      ReplacementFile::removeStale(target);
    };
    eager_ = std::make_shared<EagerArchive>(std::move(settings));
  }
  return eager_;
}

void PackageState::writeArchive() {
  closeOutputStreams();
  reopenSaved();

  // Spent by this save whatever happens: a later save writes what this one could not.
  std::shared_ptr<EagerArchive> eager = std::move(eager_);
  bool const eagerRoad = eager && eager->started() && !archive_;

  // The plan: the package's relationships first, then each part followed by its own, then
  // relationships parts whose source is not a part (kept as they came).  Every road takes
  // each item as it is planned, so that a package of many parts never holds a list of them
  // beside its records: the eager road into its list of items, the others first into the
  // content types (which come first in the archive) and then into the writer.
  std::vector<EagerArchive::Item> items;
  // The item names of the eager road's items that are not parts' (a deque keeps them where
  // they are while it grows).
  std::deque<std::string> itemNames;
  std::vector<std::pair<PartName const*, ContentType const*>> types;
  std::vector<std::unique_ptr<PartName>> setNames;
  // The relationships parts written, by item name, to find them again in the new archive,
  // and those of them written from memory.
  std::vector<std::pair<std::string, RelationshipSet*>> sets;
  std::vector<RelationshipSet*> rewrittenSets;
  ContentType const relationshipsType(kRelationshipsContentType);
  std::size_t const most = 2 + parts_.size() + partRelationships_.size();
  PlanSink emit;
  if (eagerRoad) {
    items.reserve(most);
    types.reserve(most);
    // The content types come first; their content is known once every item is.
    itemNames.emplace_back(kContentTypesItemName);
    items.push_back(
        {nullptr, &itemNames.back(), interfaces::CompressionType::DeflateMetadata, nullptr});
    emit = [&](PlannedItem&& item) {
      if (item.relationships) {
        sets.emplace_back(item.itemName, item.relationships);
        setNames.push_back(std::move(item.setName));
        types.emplace_back(setNames.back().get(), &relationshipsType);
        itemNames.push_back(std::move(item.itemName));
        items.push_back({nullptr, &itemNames.back(), item.compression, std::move(item.content)});
        return;
      }
      PartRecord const& part = *item.part;
      types.emplace_back(&part.name, part.contentType.get());
      // A part's item name is made again when the archive needs it, rather than held here.
      if (!part.itemName()) {
        items.push_back({&part.name, nullptr, item.compression, std::move(item.content)});
      } else {
        items.push_back({nullptr, part.itemName(), item.compression, std::move(item.content)});
      }
    };
  } else {
    types.reserve(most);
    emit = [&](PlannedItem&& item) {
      if (item.relationships) {
        setNames.push_back(std::move(item.setName));
        types.emplace_back(setNames.back().get(), &relationshipsType);
      } else {
        types.emplace_back(&item.part->name, item.part->contentType.get());
      }
    };
  }
  auto const walk = [&](PlanSink const& sink, bool typesOnly) {
    planRelationships(sink, packageRelationships_, PartName::getPackageRelationshipsPartName(),
                      typesOnly);
    for (auto const& record : parts_) {
      // The eager road names a part's item from its record (see emit).
      bool const named = !typesOnly && !eagerRoad;
      sink(PlannedItem{record, nullptr, nullptr, record->compression, record->entry(),
                       record->entry() ? nullptr : record->content,
                       named ? itemNameFor(record->name, record->itemName()) : std::string()});
      auto const set = partRelationships_.find(record->name);
      if (set != partRelationships_.end()) {
        planRelationships(sink, set->second, record->name.getRelationshipsPartName(), typesOnly);
      }
    }
    for (auto& set : partRelationships_) {
      if (!findPart(set.first)) {
        planRelationships(sink, set.second, set.first.getRelationshipsPartName(), typesOnly);
      }
    }
  };
  walk(emit, !eagerRoad);

  std::vector<unsigned char> typesXml;
  {
    opc::ByteArrayOutAdaptor out(typesXml);
    writeContentTypes(types, out);
    // Gone before the archive is written, which is when memory peaks.
    std::vector<std::pair<PartName const*, ContentType const*>>().swap(types);
  }

  std::vector<unsigned char> newBuffer;
  std::unique_ptr<ReplacementFile> replacement;
  if (eagerRoad) {
    if (!lock_) lockFile("Could not save package " + label_);
    items.front().content = makeMemoryContent(std::move(typesXml));
    replacement = eager->complete(items);
    std::vector<EagerArchive::Item>().swap(items);
    std::deque<std::string>().swap(itemNames);
    // The archive's bookkeeping (an item per part, and the blocks of the contents it moved,
    // which its weak references hold) goes before the parts are pointed at the new file.
    eager.reset();
  } else {
    std::unique_ptr<ZipWriter> writer;
    if (inMemory_) {
      writer = ZipWriter::toBuffer(newBuffer, options_.compressionThreads);
    } else {
      std::string const target = opc::detail::toUTF8String(path_);
      // A package created where there was nothing at open may find a package there now: it
      // is not replaced while its writer has it open.
      if (!lock_) lockFile("Could not save package " + label_);
      // Only a writer that holds the package may judge its temporary files: those of a save
      // that was killed go now, before this save adds its own.
      ReplacementFile::removeStale(target);
      replacement = std::make_unique<ReplacementFile>(target);
      // A package read from an archive copies most of its items from it: those go into the
      // new file as they come, and nothing is held per item but its directory row.
      writer = archive_
                   ? ZipWriter::sequentialToReplacement(*replacement, options_.compressionThreads)
                   : ZipWriter::toReplacement(*replacement, options_.compressionThreads);
    }
    if (options_.reproducibleTime) writer->makeReproducible(*options_.reproducibleTime);
    std::uint64_t const typesSize = typesXml.size();
    writer->add(kContentTypesItemName, interfaces::CompressionType::DeflateMetadata, typesSize,
                lazyReader(makeMemoryContent(std::move(typesXml))));
    std::vector<std::unique_ptr<PartName>>().swap(setNames);
    walk(
        [&](PlannedItem&& item) {
          if (item.rawFrom) {
            writer->addRaw(item.itemName, *archive_, *item.rawFrom);
          } else {
            writer->add(item.itemName, item.compression, item.content->size(),
                        lazyReader(item.content));
          }
          if (!item.relationships) return;
          if (!item.rawFrom) rewrittenSets.push_back(item.relationships);
          sets.emplace_back(std::move(item.itemName), item.relationships);
        },
        false);
    writer->commit();
  }
  if (replacement) {
    replacement->commit();
    // The writer's lock moves to the file that is now the package.
    int const fd = replacement->release();
    if (lock_) {
      lock_->adopt(fd);
    } else {
      lock_ = std::make_unique<PackageLock>(fd);
    }
  }

  if (eagerRoad) {
    // Nothing came from an archive, so nothing points into one: each part and each set
    // written is merely marked, to find its item in the new file should it be needed.
    packageRelationships_.changed = false;
    for (auto& set : partRelationships_) set.second.changed = false;
    for (auto const& set : sets) set.second->entryPending = true;
    for (auto const& record : parts_) record->entryPending = true;
    reopenPending_ = true;
    return;
  }

  // Written from memory: the item a set came from, if any, holds what it was before.
  for (RelationshipSet* set : rewrittenSets) set->entry = boost::none;

  if (!inMemory_) {
    // As on the eager road, the saved file is opened again when something first needs it: a
    // package closed after its save does not read the directory it just wrote.  Until then
    // every part and set reads from where it read before, the old file (still open, whatever
    // the rename did), or memory: the same bytes as the new file holds.
    for (auto const& set : sets) set.second->entryPending = true;
    auto const settle = [](RelationshipSet& set) {
      set.changed = false;
      if (!set.entryPending) set.entry = boost::none;
    };
    settle(packageRelationships_);
    for (auto& set : partRelationships_) settle(set.second);
    for (auto const& record : parts_) record->entryPending = true;
    reopenPending_ = true;
    return;
  }

  // The new buffer is now the source of every part: memory is released, and the next save
  // copies everything that did not change since raw.  Should it not open (it was just
  // written), the package keeps its current sources, which stay readable.
  std::shared_ptr<ZipArchive const> reopened;
  try {
    auto saved = std::make_shared<std::vector<unsigned char> const>(std::move(newBuffer));
    saved_ = saved;
    reopened = ZipArchive::open(openBufferSource(saved), options_.limits);
  } catch (opc::Exception const&) {
    return;
  }
  packageRelationships_.entry = boost::none;
  packageRelationships_.changed = false;
  for (auto& set : partRelationships_) {
    set.second.entry = boost::none;
    set.second.changed = false;
  }
  for (auto const& set : sets) {
    std::int64_t const index = reopened->find(set.first);
    if (index >= 0) set.second->entry = reopened->entries()[static_cast<std::size_t>(index)];
  }
  for (auto const& record : parts_) pointAt(reopened, archive_, *record);
  archive_ = std::move(reopened);
}

void PackageState::reopenSaved() {
  if (!reopenPending_) return;
  reopenPending_ = false;
  std::shared_ptr<ZipArchive const> reopened;
  try {
    reopened = ZipArchive::open(openFileSource(opc::detail::toUTF8String(path_)), options_.limits);
  } catch (opc::Exception const&) {
    // The contents stay where the save left them, readable, and the next save writes them
    // again rather than copying them raw.
    packageRelationships_.entryPending = false;
    for (auto& set : partRelationships_) set.second.entryPending = false;
    for (auto const& record : parts_) record->entryPending = false;
    return;
  }
  auto const pointSetAt = [&reopened](RelationshipSet& set, PartName const& setName) {
    if (!set.entryPending) return;
    set.entryPending = false;
    std::int64_t const index = reopened->find(itemNameFor(setName, set.itemName));
    if (index >= 0) set.entry = reopened->entries()[static_cast<std::size_t>(index)];
  };
  pointSetAt(packageRelationships_, PartName::getPackageRelationshipsPartName());
  for (auto& set : partRelationships_) {
    pointSetAt(set.second, set.first.getRelationshipsPartName());
  }
  for (auto const& record : parts_) {
    if (!record->entryPending) continue;
    record->entryPending = false;
    pointAt(reopened, archive_, *record);
  }
  archive_ = std::move(reopened);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
