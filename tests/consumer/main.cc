// Links against the installed library, includes only the umbrella header, and checks that
// the library's exceptions can be caught by their opc::Exception base across the boundary.
#include <cstring>
#include <iostream>

#include <opc/vkservices.h>

int main() {
  if (std::strlen(opcvkservices_version) == 0 || std::strlen(opcvkservices_build_date) != 11) {
    std::cerr << "consumer: unexpected version data\n";
    return 1;
  }
  try {
    throw opc::Exception("consumer check", boost::system::error_code());
  } catch (opc::Exception const& e) {
    if (std::strcmp(e.what(), "consumer check") != 0) return 1;
  }
  std::cout << "consumer: opcvkservices " << opcvkservices_version << " built "
            << opcvkservices_build_date << ": ok\n";
  return 0;
}
