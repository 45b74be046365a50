#include <opc/core/confined_destination.h>

namespace opc {

// Out of line, so that the virtual tables live once, in this library.
ConfinedFile::~ConfinedFile() = default;
ConfinedDestination::~ConfinedDestination() = default;

}  // namespace opc
