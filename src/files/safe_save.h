// Saving without losing the old file: the content goes to a temporary file beside the target,
// which replaces the target only once it is complete, flushed and closed. A save that fails at
// any point leaves the previous file as it was and removes the temporary one.
#pragma once
#include <cstdio>

// Writes the whole content into `file` (opened for writing and seeking, at offset 0). Returns
// nonzero on success; zero abandons the save.
using SaveWriter = int (*)(FILE* file, void* context);

// Saves through `write` into `path` (16-bit text, converted to the file system's form here). The
// new file keeps the permissions of the one it replaces. Shows "Unable to open output file\n<path>"
// when the temporary file cannot be created, and "Unable to write output file\n<path>" when
// writing, flushing or renaming fails; a writer that returns zero is taken to have reported its
// own reason. Returns nonzero when the target now holds the new content.
int SaveFileSafely(const char16_t* path, SaveWriter write, void* context);
