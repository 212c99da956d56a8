// The exit statuses of tarv-fetch's own. Those of the updater are handed on: 0, 1 and 253 to 255.
#ifndef TARVOLIN_FETCH_EXIT_STATUS_H
#define TARVOLIN_FETCH_EXIT_STATUS_H

namespace fetch {

constexpr int kDone = 0;
constexpr int kWrongUsage = 2;
constexpr int kRefused = 3;      // a signature, digests, a chunk, or an answer that cannot be used
constexpr int kGaveUp = 4;       // no new proven byte for as long as --give-up allows
constexpr int kUpdaterLost = 5;  // it could not be started, or was killed
constexpr int kSignalled = 128;  // and the signal's number: asked to end before the package was handed over

}  // namespace fetch

#endif
