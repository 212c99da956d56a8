// tarv-store verify and extract: the images of an armed store.
#ifndef TARVOLIN_TOOLS_TARV_STORE_IMAGES_H
#define TARVOLIN_TOOLS_TARV_STORE_IMAGES_H

#include <cstdio>
#include <string>

namespace tools::tarv_store {

// Computes every image's CRC from the stream and prints what came out. Throws a refusal with the first fault
// once all is printed; a store that is not armed is one.
void verify_store(FILE* out, bool as_json);

// Copies one image into the file `path`, which appears only when its CRC is right, or to `out` when that is
// "-", once its CRC was right. `image` is its name (of two with this name the later one, which counts) or its
// number in the list. Throws a refusal otherwise.
void extract_image(FILE* out, const std::string& image, const std::string& path);

}  // namespace tools::tarv_store

#endif
