// Only where libsodium is linked in: stand-ins for two of its functions, whose own objects would link in all
// that sodium_init() chooses from, and a random generator of its own.
#include <sodium/core.h>
#include <sodium/randombytes.h>
#include <sys/random.h>

#include <cstdlib>

// Nothing here calls libsodium in a wrong way; if it did, this ends the program as libsodium would.
void sodium_misuse() {
  abort();
}

// No function that is called needs random bytes.
void randombytes_buf(void* bytes, size_t size) {
  if (getrandom(bytes, size, 0) != static_cast<ssize_t>(size)) abort();
}
