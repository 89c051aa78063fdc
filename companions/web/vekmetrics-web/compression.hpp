#pragma once

// Compression by gzip, slice by slice.

#include <gio/gio.h>

#include <span>

namespace vekin::web {

GZlibCompressor *compression_new();

// Compresses a slice, the last one too, and appends what there is of it by now.
void compression_append(GZlibCompressor *compressor, std::span<const guint8> slice, bool is_last,
                        GByteArray *output);

}  // namespace vekin::web
