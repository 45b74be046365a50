// Content types shared by the parts that have them.  Internal to libopcmodel.
#ifndef OPC_MODEL_PACKAGE_CONTENT_TYPE_POOL_H_
#define OPC_MODEL_PACKAGE_CONTENT_TYPE_POOL_H_

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <opc/model/content_type.h>

namespace opc {
namespace model {
namespace detail {

// A package of many parts has few distinct content types: each part record holds a shared one
// rather than a copy of its own.  Types are shared only when their text (toString) is the
// same, so that a part gives back its type exactly as it was given, parameter order and case
// included.  The pool keeps a bounded number of types; past that, a type is given a new
// object, as it would be without the pool.  Header-only, so that the model's own tests reach
// it without an export.  Not thread-safe, as the package state it serves.
class ContentTypePool {
 public:
  // An object equal in text to `type`, which the caller may keep as long as it wants.
  std::shared_ptr<ContentType const> intern(ContentType const& type) {
    std::u16string text = type.toString();
    // Parts come in runs of one type: the previous match is tried first.
    if (last_ < kept_.size() && kept_[last_].text == text) return kept_[last_].type;
    for (std::size_t i = 0; i < kept_.size(); ++i) {
      if (kept_[i].text == text) {
        last_ = i;
        return kept_[i].type;
      }
    }
    auto shared = std::make_shared<ContentType const>(type);
    if (kept_.size() < kMaxKept) {
      last_ = kept_.size();
      kept_.push_back({std::move(text), shared});
    }
    return shared;
  }

 private:
  static constexpr std::size_t kMaxKept = 64;

  struct Kept {
    std::u16string text;
    std::shared_ptr<ContentType const> type;
  };
  std::vector<Kept> kept_;
  std::size_t last_ = 0;  // where the previous look-up found its type
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_CONTENT_TYPE_POOL_H_
