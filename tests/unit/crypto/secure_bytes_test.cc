#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <foundation/crypto/secure_bytes.h>

namespace {

using foundation::crypto::SecureAllocator;

// An upstream allocator that, when a block comes back, records whether every byte of it was
// zero: the state a secure allocator must leave memory in before releasing it.
struct Release {
  std::size_t size;
  bool wiped;
};

template <class T>
struct InspectingAllocator {
  using value_type = T;
  explicit InspectingAllocator(std::vector<Release>* log) : releases(log) {}
  template <class U>
  InspectingAllocator(InspectingAllocator<U> const& other) : releases(other.releases) {}

  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* pointer, std::size_t count) {
    auto const* raw = reinterpret_cast<unsigned char const*>(pointer);
    bool wiped = true;
    for (std::size_t i = 0; i < count * sizeof(T); ++i) wiped = wiped && raw[i] == 0;
    releases->push_back({count * sizeof(T), wiped});
    std::allocator<T>().deallocate(pointer, count);
  }
  template <class U>
  bool operator==(InspectingAllocator<U> const& other) const {
    return releases == other.releases;
  }
  template <class U>
  bool operator!=(InspectingAllocator<U> const& other) const {
    return releases != other.releases;
  }

  std::vector<Release>* releases;
};

using InspectedSecureBytes =
    std::vector<unsigned char, SecureAllocator<unsigned char, InspectingAllocator<unsigned char>>>;

InspectedSecureBytes secretBuffer(std::vector<Release>& log, std::size_t size) {
  InspectedSecureBytes buffer{SecureAllocator<unsigned char, InspectingAllocator<unsigned char>>(
      InspectingAllocator<unsigned char>(&log))};
  buffer.assign(size, 0xA5);
  return buffer;
}

TEST(SecureBytesTest, WipesItsBlockWhenReleased) {
  std::vector<Release> log;
  { InspectedSecureBytes const secret = secretBuffer(log, 48); }
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].size, 48u);
  EXPECT_TRUE(log[0].wiped);
}

TEST(SecureBytesTest, WipesTheOldBlockWhenItGrows) {
  std::vector<Release> log;
  InspectedSecureBytes secret = secretBuffer(log, 32);
  for (int i = 0; i < 1000; ++i) secret.push_back(0x5A);
  ASSERT_GE(log.size(), 1u);
  for (Release const& release : log) EXPECT_TRUE(release.wiped);
  std::size_t const grown = log.size();
  secret.shrink_to_fit();
  secret.resize(10);
  secret.shrink_to_fit();
  EXPECT_GT(log.size(), grown);
  for (Release const& release : log) EXPECT_TRUE(release.wiped);
}

TEST(SecureBytesTest, AMovedBufferKeepsItsBlockAndWipesItOnce) {
  std::vector<Release> log;
  InspectedSecureBytes source = secretBuffer(log, 20);
  unsigned char const* const block = source.data();
  {
    InspectedSecureBytes const target = std::move(source);
    EXPECT_EQ(target.data(), block);
    EXPECT_TRUE(log.empty());
  }
  ASSERT_EQ(log.size(), 1u);
  EXPECT_TRUE(log[0].wiped);
}

TEST(SecureBytesTest, TheWipeReallyOverwrites) {
  unsigned char secret[24];
  std::memset(secret, 0xC3, sizeof secret);
  foundation::crypto::secureWipe(secret, sizeof secret);
  for (unsigned char byte : secret) EXPECT_EQ(byte, 0);
  foundation::crypto::secureWipe(nullptr, 0);
}

TEST(SecureBytesTest, TheLibraryBufferUsesTheWipingAllocator) {
  static_assert(std::is_same<foundation::crypto::SecureBytes::allocator_type,
                             SecureAllocator<unsigned char>>::value,
                "SecureBytes must release through the wiping allocator");
  foundation::crypto::SecureBytes a(4, 1);
  foundation::crypto::SecureBytes const b = a;
  EXPECT_EQ(a, b);
  EXPECT_TRUE(a.get_allocator() == b.get_allocator());
}

}  // namespace
