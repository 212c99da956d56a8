// The descriptors of this process: the standard three, and those beyond, inherited ones and those of
// libraries too.
#ifndef TARVOLIN_BASE_DESCRIPTORS_H
#define TARVOLIN_BASE_DESCRIPTORS_H

// Opens those of the standard three on /dev/null that are closed. Otherwise flash or a socket could get one
// of these numbers, and the program would print its messages into it.
void occupy_standard_descriptors();

// Marks those beyond close-on-exec: a library may have opened some without.
void keep_descriptors_private();

// Closes those beyond: a starter may have left some open, and a file on a volume that is to be unmounted
// keeps it busy.
void close_inherited_descriptors();

#endif
