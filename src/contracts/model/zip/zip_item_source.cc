// Feeding items to libzip.  libzip is handed data that is already compressed, with its method,
// sizes and CRC-32 in the source's stat, and copies it as it is.
#include "zip_item_source.h"

#include "zip_format.h"

namespace opc {
namespace model {
namespace detail {
namespace {

struct SourceState {
  WriterItem* item = nullptr;
  ItemSourceOwner* owner = nullptr;
  // The item's place in the archive, for the callback that changes its method.
  zip_t* archive = nullptr;
  zip_uint64_t index = 0;
  zip_error_t error;
};

void statItem(WriterItem& item, zip_stat_t& stat) {
  zip_stat_init(&stat);
  stat.valid = ZIP_STAT_SIZE | ZIP_STAT_COMP_METHOD;
  if (item.plan == WriterItem::Plan::Raw) {
    stat.size = item.rawEntry.uncompressedSize;
    stat.comp_size = item.rawEntry.compressedSize;
    stat.comp_method =
        item.rawEntry.method == zipformat::kMethodDeflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
    stat.crc = item.rawEntry.crc32;
    stat.valid |= ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC;
    return;
  }
  stat.size = item.size;
  stat.comp_size = item.compressedSize;
  stat.valid |= ZIP_STAT_COMP_SIZE;
  stat.comp_method = item.deflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
  if (item.crcKnown) {
    stat.crc = item.crc;
    stat.valid |= ZIP_STAT_CRC;
  }
}

zip_int64_t itemCallback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
  SourceState& source = *static_cast<SourceState*>(state);
  WriterItem& item = *source.item;
  try {
    switch (command) {
      case ZIP_SOURCE_SUPPORTS:
        return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                              ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE,
                                              -1);
      case ZIP_SOURCE_STAT: {
        if (length < sizeof(zip_stat_t)) return -1;
        source.owner->ensurePrepared(item);
        bool const stored = item.plan != WriterItem::Plan::Raw
                                ? !item.deflated
                                : item.rawEntry.method == zipformat::kMethodStored;
        if (stored && item.compression != interfaces::CompressionType::Stored &&
            item.plan != WriterItem::Plan::Raw) {
          // Decided only now that the content does not shrink: libzip must then store the
          // bytes instead of deflating them itself.  It reads the method after this stat.
          zip_set_file_compression(source.archive, source.index, ZIP_CM_STORE, 0);
        }
        statItem(item, *static_cast<zip_stat_t*>(data));
        return sizeof(zip_stat_t);
      }
      case ZIP_SOURCE_OPEN:
        item.rewind();
        return 0;
      case ZIP_SOURCE_READ:
        return static_cast<zip_int64_t>(
            item.readStored(static_cast<unsigned char*>(data), static_cast<std::size_t>(length)));
      case ZIP_SOURCE_CLOSE:
        source.owner->itemWritten(item);
        return 0;
      case ZIP_SOURCE_ERROR:
        return zip_error_to_data(&source.error, data, length);
      case ZIP_SOURCE_FREE:
        zip_error_fini(&source.error);
        delete &source;
        return 0;
      default:
        zip_error_set(&source.error, ZIP_ER_OPNOTSUPP, 0);
        return -1;
    }
  } catch (...) {
    // Nothing may be thrown through libzip's C frames: keep it for commit().
    source.owner->recordFailure(item, std::current_exception());
    zip_error_set(&source.error, ZIP_ER_INTERNAL, 0);
    return -1;
  }
}

}  // namespace

AddedItem addItemSource(zip_t* archive, WriterItem& item, ItemSourceOwner& owner) {
  AddedItem added;
  SourceState* state = new SourceState();
  state->item = &item;
  state->owner = &owner;
  state->archive = archive;
  zip_error_init(&state->error);
  zip_source_t* source = zip_source_function_create(&itemCallback, state, nullptr);
  if (source == nullptr) {
    zip_error_fini(&state->error);
    delete state;
    return added;
  }
  added.sourceMade = true;
  added.index = zip_file_add(archive, item.name.c_str(), source, ZIP_FL_ENC_UTF_8);
  if (added.index < 0) {
    zip_source_free(source);
    return added;
  }
  state->index = static_cast<zip_uint64_t>(added.index);
  return added;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
