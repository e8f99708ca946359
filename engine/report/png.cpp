#include "engine/report/png.h"

#include <zlib.h>

#include <cstdlib>
#include <new>
#include <unordered_map>
#include <vector>

namespace kvo::report {

namespace {

constexpr std::string_view signature = "\x89PNG\r\n\x1a\n";
constexpr std::size_t most_colours = 256;
constexpr char eight_bits = 8, true_colour = 2, palette_colour = 3;

void append_number(std::string& bytes, std::uint32_t number) {
  for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(number >> shift);
}

void append_colour(std::string& bytes, std::uint32_t rgb) {
  for (const int shift : {16, 8, 0}) bytes += static_cast<char>(rgb >> shift);
}

void append_chunk(std::string& file, std::string_view type, std::string_view data) {
  append_number(file, static_cast<std::uint32_t>(data.size()));
  const std::size_t begin = file.size();
  file.append(type).append(data);
  append_number(
      file, static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(file.data() + begin),
                                             static_cast<uInt>(file.size() - begin))));
}

std::string compressed(const std::string& rows, int strategy) {
  z_stream stream{};
  if (deflateInit2(&stream, 6, Z_DEFLATED, MAX_WBITS, MAX_MEM_LEVEL, strategy) != Z_OK)
    throw std::bad_alloc();
  std::string out(deflateBound(&stream, rows.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(rows.data()));
  stream.avail_in = static_cast<uInt>(rows.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

/// The palette's colours in the order in which they first appear, and the rows of the indices; no
/// rows when there are too many colours.
struct Indexed {
  std::string palette, rows;
};

Indexed indexed(const std::uint32_t* pixels, int width, int height, int stride) {
  Indexed result;
  std::unordered_map<std::uint32_t, unsigned char> index;
  result.rows.reserve(std::size_t(width + 1) * std::size_t(height));
  std::uint32_t last = ~0U;
  char last_index = 0;
  for (int y = 0; y < height; ++y) {
    result.rows += '\0';
    for (int x = 0; x < width; ++x) {
      const std::uint32_t rgb = pixels[std::ptrdiff_t(y) * stride + x] & 0xFFFFFFU;
      if (rgb != last) {
        const auto [place, added] = index.try_emplace(rgb, index.size());
        if (added) {
          if (index.size() > most_colours) return {};
          append_colour(result.palette, rgb);
        }
        last = rgb;
        last_index = static_cast<char>(place->second);
      }
      result.rows += last_index;
    }
  }
  return result;
}

/// Rows of three bytes a pixel, each as its difference from the pixel above, which is mostly 0.
std::string differences(const std::uint32_t* pixels, int width, int height, int stride) {
  constexpr char above = 2;
  std::string rows;
  rows.reserve((std::size_t(width) * 3 + 1) * std::size_t(height));
  for (int y = 0; y < height; ++y) {
    const std::uint32_t* row = pixels + std::ptrdiff_t(y) * stride;
    rows += above;
    for (int x = 0; x < width; ++x) {
      const std::uint32_t upper = y == 0 ? 0 : row[x - stride];
      for (const int shift : {16, 8, 0})
        rows += static_cast<char>((row[x] >> shift) - (upper >> shift));
    }
  }
  return rows;
}

}  // namespace

std::string png_of(const std::uint32_t* pixels, int width, int height, int stride,
                   unsigned per_metre) {
  const Indexed few = indexed(pixels, width, height, stride);
  const bool has_palette = !few.rows.empty();
  std::string header, resolution;
  append_number(header, static_cast<std::uint32_t>(width));
  append_number(header, static_cast<std::uint32_t>(height));
  header += {eight_bits, has_palette ? palette_colour : true_colour, 0, 0, 0};
  append_number(resolution, per_metre);
  append_number(resolution, per_metre);
  resolution += '\1';

  std::string file(signature);
  append_chunk(file, "IHDR", header);
  append_chunk(file, "pHYs", resolution);
  if (has_palette) append_chunk(file, "PLTE", few.palette);
  append_chunk(file, "IDAT",
               has_palette ? compressed(few.rows, Z_DEFAULT_STRATEGY)
                           : compressed(differences(pixels, width, height, stride), Z_FILTERED));
  append_chunk(file, "IEND", "");
  return file;
}

}  // namespace kvo::report
