// tarv-pkg check: tells whether the updater would take a package.
#ifndef TARVOLIN_TOOLS_TARV_PKG_CHECK_H
#define TARVOLIN_TOOLS_TARV_PKG_CHECK_H

#include <string>

// Looks at the head as the updater does, then at the data of every image, and prints one line when all is
// well. Throws a refusal that names the first fault. What only a module can tell (its project, its room for
// the images) is not looked at.
void check_package(const std::string& path);

#endif
