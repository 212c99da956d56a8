// The descriptors of this process beyond the standard three, inherited ones and those of libraries too.
#ifndef TARVOLIN_BASE_DESCRIPTORS_H
#define TARVOLIN_BASE_DESCRIPTORS_H

// Marks them close-on-exec: a library may have opened some without.
void keep_descriptors_private();

// Closes them: a starter may have left some open, and a file on a volume that is to be unmounted keeps it
// busy.
void close_inherited_descriptors();

#endif
