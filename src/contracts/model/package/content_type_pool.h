// Content types shared by the parts that have them.  Internal to libopcmodel.
#ifndef OPC_MODEL_PACKAGE_CONTENT_TYPE_POOL_H_
#define OPC_MODEL_PACKAGE_CONTENT_TYPE_POOL_H_

#include <cstddef>
#include <memory>
#include <vector>

#include <opc/model/content_type.h>

namespace opc {
namespace model {
namespace detail {

// A package of many parts has few distinct content types: each part record holds a shared one
// rather than a copy of its own.  Types are shared only when they are written alike
// (ContentType::isWrittenAs, the same text), so that a part gives back its type exactly as it was
// given, parameter order and case included.  The pool keeps a bounded number of types; past that, a
// type is given a new object, as it would be without the pool.  Header-only, so that the model's
// own tests reach it without an export.  Not thread-safe, as the package state it serves.
class ContentTypePool {
 public:
  // An object equal in text to `type`, which the caller may keep as long as it wants.
  std::shared_ptr<ContentType const> intern(ContentType const& type) {
    // Parts come in runs of one type: the previous match is tried first.  Types are compared
    // field by field, which makes no text: one part at a time, a package of many parts would
    // otherwise print its type once a part.
    if (last_ < kept_.size() && kept_[last_]->isWrittenAs(type)) return kept_[last_];
    for (std::size_t i = 0; i < kept_.size(); ++i) {
      if (kept_[i]->isWrittenAs(type)) {
        last_ = i;
        return kept_[i];
      }
    }
    auto shared = std::make_shared<ContentType const>(type);
    if (kept_.size() < kMaxKept) {
      last_ = kept_.size();
      kept_.push_back(shared);
    }
    return shared;
  }

 private:
  static constexpr std::size_t kMaxKept = 64;

  std::vector<std::shared_ptr<ContentType const>> kept_;
  std::size_t last_ = 0;  // where the previous look-up found its type
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_CONTENT_TYPE_POOL_H_
