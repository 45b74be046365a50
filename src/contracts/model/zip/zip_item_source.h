// The libzip source of one item of the libzip writer: its stat and its stored bytes, which
// libzip copies as they are.  Part of the ZIP writer library (see zip_writer_library.h).
#ifndef OPC_MODEL_ZIP_ZIP_ITEM_SOURCE_H_
#define OPC_MODEL_ZIP_ZIP_ITEM_SOURCE_H_

#include <exception>

#include <zip.h>

#include "zip_writer_items.h"

namespace opc {
namespace model {
namespace detail {

// The hooks of the writer that an item's libzip source calls.
class ItemSourceOwner {
 public:
  virtual ~ItemSourceOwner() = default;
  // Blocks until `item` is prepared; rethrows its failure.
  virtual void ensurePrepared(WriterItem& item) = 0;
  // Called when libzip has read the item: its memory may go.
  virtual void itemWritten(WriterItem& item) = 0;
  // Keeps the first failure of a callback, which cannot throw through libzip.
  virtual void recordFailure(WriterItem const& item, std::exception_ptr error) = 0;
};

struct AddedItem {
  bool sourceMade = false;  // false: no memory for the source, and nothing was added
  zip_int64_t index = -1;   // the item's index, or -1 with the archive's error set
};

// Adds `item` to `archive` under its name (flagged UTF-8), read through a libzip source that
// calls `owner`; the item and the owner must outlive the source, which libzip owns.  A source
// that was made but not added is freed.
AddedItem addItemSource(zip_t* archive, WriterItem& item, ItemSourceOwner& owner);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ZIP_ZIP_ITEM_SOURCE_H_
