// Which build of tarvolin a program is from. The build makes the text (cmake/version.cmake).
#ifndef TARVOLIN_BASE_VERSION_H
#define TARVOLIN_BASE_VERSION_H

// The version, and in parentheses the commit, with "-dirty" behind it when the sources were changed since, or
// "unknown": "0.1.0 (0a6c38e1b2d3)".
extern const char version_text[];

#endif
