// The one answer to an interrupted system call: make it again.
#ifndef TARVOLIN_BASE_RETRY_H
#define TARVOLIN_BASE_RETRY_H

#include <cerrno>

// Calls `call` again for as long as it returns -1 with errno EINTR. Returns its last result; errno is the
// call's own.
template <typename Call>
auto retry_interrupted(Call call) -> decltype(call()) {
  decltype(call()) result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

#endif
