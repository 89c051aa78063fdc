#include "compression.hpp"

#include "common/internal.hpp"

namespace vekin::web {

static constexpr int kLevel = 1;  // shrinks such texts to a tenth, three times as fast as 6

GZlibCompressor *compression_new() {
  return g_zlib_compressor_new(G_ZLIB_COMPRESSOR_FORMAT_GZIP, kLevel);
}

void compression_append(GZlibCompressor *compressor, std::span<const guint8> slice, bool is_last,
                        GByteArray *output) {
  auto flags = is_last ? G_CONVERTER_INPUT_AT_END : G_CONVERTER_NO_FLAGS;
  auto result = G_CONVERTER_CONVERTED;
  while (is_last ? result != G_CONVERTER_FINISHED : !slice.empty()) {
    guint8 buffer[16 * 1024];
    gsize n_read, n_written;
    result = g_converter_convert(G_CONVERTER(compressor), slice.data(), slice.size(), buffer,
                                 sizeof buffer, flags, &n_read, &n_written, nullptr);
    vek_assert(result != G_CONVERTER_ERROR);  // there is input or its end, and room
    slice = {slice.data() + n_read, slice.size() - n_read};
    g_byte_array_append(output, buffer, static_cast<guint>(n_written));
  }
}

}  // namespace vekin::web
