// Enumerator: the result of every operation that gives several entries.
#ifndef OPC_MODEL_ENUMERATOR_H_
#define OPC_MODEL_ENUMERATOR_H_

#include <cstddef>
#include <utility>
#include <vector>

namespace opc {
namespace model {

template <typename Container>
class Enumerator;

// Owns a vector of entries by value and lets callers iterate over it.  The entries are a
// snapshot: later changes to whatever they came from do not show in them.  Iterators and
// references stay valid as long as the enumerator and are invalidated by assigning to it.
// A value class; const operations are safe from several threads.
template <typename T>
class Enumerator<std::vector<T>> {
 public:
  using value_type = T;
  using iterator = typename std::vector<T>::iterator;
  using const_iterator = typename std::vector<T>::const_iterator;
  using size_type = typename std::vector<T>::size_type;

  Enumerator() = default;
  explicit Enumerator(std::vector<T> const& entries) : entries_(entries) {}
  explicit Enumerator(std::vector<T>&& entries) noexcept : entries_(std::move(entries)) {}

  iterator begin() { return entries_.begin(); }
  iterator end() { return entries_.end(); }
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }

  size_type size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }

  // The entries, for callers that need the vector itself.
  std::vector<T> const& getEntries() const { return entries_; }

 private:
  std::vector<T> entries_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_ENUMERATOR_H_
