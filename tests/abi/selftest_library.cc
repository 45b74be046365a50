// A shared library with known faults, for check_exports_selftest.sh: one promised class is
// present, one is absent, and two symbols leak (an internal helper and a foreign function).
#define SELFTEST_VISIBLE __attribute__((visibility("default")))

namespace opc {
namespace vkservices {

class SELFTEST_VISIBLE Promised {
 public:
  virtual ~Promised();
};

Promised::~Promised() = default;

namespace detail {
SELFTEST_VISIBLE int internalHelper() { return 1; }
}  // namespace detail

}  // namespace vkservices
}  // namespace opc

namespace other {
SELFTEST_VISIBLE int outsider() { return 2; }
}  // namespace other

extern "C" SELFTEST_VISIBLE char const* const opcvkservices_version;
char const* const opcvkservices_version = "0.0.0.0";
