// Only where the C++ runtime is linked in: nothing here throws, so that its printer for exceptions that
// nobody caught, with all that it needs to name them, may stay out.
#include <cstdlib>

namespace __gnu_cxx {
void __verbose_terminate_handler();   // NOLINT: the runtime's name
void __verbose_terminate_handler() {  // NOLINT
  abort();
}
}  // namespace __gnu_cxx
