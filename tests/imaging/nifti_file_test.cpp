// What the reader takes and refuses, with the exact messages. That the values are right is checked
// against independent software elsewhere.

#include "nifti/nifti_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <functional>
#include <limits>

#include "imaging/nifti.h"
#include "made_image.h"

namespace {

/// "" when the image is read, else the message.
std::string refusal(const std::string& path, const Nifti_options& options = {}) {
  const auto result = nifti_read(path, options);
  const auto* error = std::get_if<Nifti_error>(&result);
  return error == nullptr ? "" : error->message;
}

/// An image that must be readable.
Nifti_image read(const std::string& path) {
  EXPECT_EQ(refusal(path), "");
  return std::get<Nifti_image>(nifti_read(path));
}

std::vector<float> values_of(const Nifti_image& image) {
  return {image.values(0).begin(), image.values(0).end()};
}

using Change = std::function<void(Nifti_header&)>;

constexpr float NaN = std::numeric_limits<float>::quiet_NaN();
constexpr float INF = std::numeric_limits<float>::infinity();
constexpr const char* WRONG_SIZE = "NIfTI file 'x.nii' has a wrong size";
constexpr const char* NO_VOLUME_0 = "Unexpected end of NIfTI file 'x.nii' when reading volume 0";
constexpr const char* UNSUPPORTED = "Header of NIfTI file 'x.nii' defines an unsupported data type";
constexpr const char* WRONG_TYPE = "Header of NIfTI file 'x.nii' defines a wrong data type";
constexpr const char* WRONG_MAGIC =
    "File 'x.nii' is not a NIfTI file (unknown header type definition)";
constexpr const char* WRONG_SWAPPED =
    "File 'x.nii' is not a NIfTI file (wrong header size definition)";

Change set_dims(const std::vector<int>& dims) {
  return [dims](Nifti_header& h) {
    for (std::size_t i = 0; i < dims.size(); ++i) h.dim[i] = static_cast<std::int16_t>(dims[i]);
  };
}
Change set_offset(float offset) {
  return [=](Nifti_header& h) { h.vox_offset = offset; };
}
Change set_type(int type, int bits) {
  return [=](Nifti_header& h) {
    h.datatype = static_cast<std::int16_t>(type);
    h.bitpix = static_cast<std::int16_t>(bits);
  };
}
Change set_magic(const char (&magic)[5]) {
  return [&magic](Nifti_header& h) { std::memcpy(h.magic, magic, 4); };
}

struct Header_case {
  const char* what;
  Change change;
  std::string message;  // "" means that the image is read
};

const Header_case HEADER_CASES[] = {
    {"nothing", [](Nifti_header&) {}, ""},
    {"no dimensions", set_dims({0}), WRONG_SIZE},
    {"width 0", set_dims({3, 0}), WRONG_SIZE},
    {"negative depth", set_dims({3, 4, 3, -2}), WRONG_SIZE},
    {"two negative sizes", set_dims({3, -4, -3, 2}), WRONG_SIZE},
    {"2^31 voxels", set_dims({3, 2048, 1024, 1024}), WRONG_SIZE},
    {"more than 2^31 volumes", set_dims({6, 1, 1, 1, 32767, 32767, 32767}), WRONG_SIZE},
    {"2^31 - 2 voxels in 500 bytes", set_dims({3, 2, 32767, 32766}), NO_VOLUME_0},
    {"10 volumes, one of them there", set_dims({4, 4, 3, 2, 10}),
     "Unexpected end of NIfTI file 'x.nii' when reading volume 1"},
    {"volumes beyond dim[0]", set_dims({3, 4, 3, 2, 10}), ""},
    {"0 volumes", set_dims({4, 4, 3, 2, 0}), ""},
    {"unused sizes negative", set_dims({7, 4, 3, 2, -1, -1, -1, -1}), ""},
    {"offset not a number", set_offset(NaN), WRONG_SIZE},
    {"offset huge", set_offset(1e30F), WRONG_SIZE},
    {"offset negative", set_offset(-1), WRONG_SIZE},
    {"offset beyond the file", set_offset(1e9F), NO_VOLUME_0},
    {"offset with a fraction", set_offset(352.9F), ""},
    {"magic of a pair", set_magic("ni1\0"), ""},
    {"version 9", set_magic("n+9\0"), ""},
    {"version 0", set_magic("n+0\0"), WRONG_MAGIC},
    {"version letter", set_magic("n+x\0"), WRONG_MAGIC},
    {"magic not ended", set_magic("n+1\n"), WRONG_MAGIC},
    {"size of header wrong in own order", [](Nifti_header& h) { h.sizeof_hdr = 1543; }, ""},
    {"dimensions of neither order", set_dims({0x0909}), WRONG_SWAPPED},
    {"swapped, size of header wrong", set_dims({0x0300}), WRONG_SWAPPED},
    {"8-bit", set_type(2, 8), ""},
    {"8-bit, 16 declared", set_type(2, 16), WRONG_TYPE},
    {"64-bit float", set_type(64, 64), UNSUPPORTED},
    {"RGB", set_type(128, 24), UNSUPPORTED},
    {"type not known", set_type(-1, 32), UNSUPPORTED},
    {"wrong type and wrong offset", [](Nifti_header& h) { h.datatype = 0, h.vox_offset = -1; },
     WRONG_SIZE},
    {"slope without a sensible intercept",
     [](Nifti_header& h) { h.scl_slope = 2, h.scl_inter = NaN; },
     "Header of NIfTI file 'x.nii' defines a wrong scaling"},
};

TEST(NiftiHeader, IsTakenOrRefusedByWhatItSaysInEitherByteOrder) {
  const Test_folder folder;
  for (const Header_case& c : HEADER_CASES) {
    Nifti_header header = made_header();
    c.change(header);
    // Some cases are about the order itself.
    const bool either =
        header.sizeof_hdr == sizeof header && header.dim[0] <= 7 && header.dim[0] != 0;
    for (int swapped = 0; swapped <= (either ? 1 : 0); ++swapped, nifti_swap_header(header)) {
      write_text("x.nii", single_file(header, bytes_of(made_values())));
      const std::string message = refusal("x.nii");
      // A wrong size may say in brackets which one.
      const bool may_go_on = c.message == WRONG_SIZE && message.starts_with(WRONG_SIZE);
      EXPECT_EQ(may_go_on ? WRONG_SIZE : message, c.message) << c.what << " " << swapped;
    }
  }
}

TEST(NiftiFile, IsFoundByItsEnding) {
  const Test_folder folder;
  const std::string bytes = single_file(made_header(), bytes_of(made_values()));
  write_gzip("a.nii.gz", bytes);
  for (const char* name : {"a.nii", "plain.nii.gz", "not_compressed.nii", "odd.nii.nii"})
    write_text(name, bytes);
  for (const char* name : {"a.hdr", "CAPITALS.HDR"}) write_text(name, bytes_of(made_header()));
  write_text("a.img", bytes_of(made_values()));
  std::filesystem::create_directory("folder.nii");
  mkfifo("pipe.nii.gz", 0600);
  const char* const unknown = " was not found or is not a NIfTI file (unknown extension)";
  const std::vector<std::string> cases[] = {
      // path, kind and file found; or the message behind the path
      {"a.nii.gz", "1", "a.nii.gz"},
      {"a.nii", "2", "a.nii"},
      {"a.hdr", "3", "a.hdr"},
      {"a", "1", "a.nii.gz"},  // of the three
      {"not_compressed", "2", "not_compressed.nii"},
      {folder.path() / "a", "1", folder.path() / "a.nii.gz"},
      {"plain.nii.gz", "1", "plain.nii.gz"},
      {"odd.nii", " not found"},
      {"CAPITALS.HDR", unknown},
      {"a.img", unknown},
      {"", unknown},
      {"no_such.nii.gz", " not found"},
      {"no_such.hdr", " not found"},
      {"folder.nii", " is not a regular file"},
      {"pipe.nii.gz", " is not a regular file"},
  };
  for (const auto& c : cases) {
    const auto result = nifti_read(c[0]);
    const auto* image = std::get_if<Nifti_image>(&result);
    if (image != nullptr) {
      EXPECT_EQ(std::to_string(static_cast<int>(image->kind)), c[1]) << c[0];
      EXPECT_EQ(image->path, c.back());
    } else {
      const bool compressed = c[0] == "no_such.nii.gz";
      EXPECT_EQ(refusal(c[0]), (compressed ? "Compressed file '" : "File '") + c[0] + "'" + c[1]);
    }
  }
}

TEST(NiftiFile, CutAnywhereIsRefused) {
  const Test_folder folder;
  Nifti_header header = made_header();
  header.dim[0] = 4;
  header.dim[4] = 2;
  const std::string bytes = single_file(header, bytes_of(made_values()) + bytes_of(made_values()));
  const auto ends_at = [](const char* path, int volume) {
    return "Unexpected end of NIfTI file '" + std::string(path) + "' when reading volume " +
           std::to_string(volume);
  };
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    const std::string cut = bytes.substr(0, length);
    write_text("x.nii", cut);
    write_gzip("x.nii.gz", cut);
    for (const char* path : {"x.nii", "x.nii.gz"}) {
      const std::string expected =
          length < 348   ? "NIfTI file '" + std::string(path) + "' has a wrong header size"
          : length < 448 ? ends_at(path, 0)
          : length < 544 ? ends_at(path, 1)
                         : "";
      EXPECT_EQ(refusal(path), expected) << path << " cut to " << length;
    }
  }
}

TEST(NiftiFile, CompressedDataThatAreDamagedAreRefused) {
  const Test_folder folder;
  // Values that cannot be compressed, and more of them than zlib reads at once.
  Nifti_header header = made_header();
  std::ranges::copy(std::initializer_list<std::int16_t>{3, 64, 64, 32}, header.dim);
  std::vector<std::uint32_t> noise(64 * 64 * 32);
  std::uint32_t state = 1;
  for (std::uint32_t& value : noise) value = state = state * 1664525 + 1013904223;
  write_gzip("x.nii.gz", single_file(header, bytes_of(noise)));
  const std::string sound = read_text("x.nii.gz");
  const std::string end = "Unexpected end of NIfTI file 'x.nii.gz' when reading volume 0";
  for (std::size_t cut = 1; cut <= 8; ++cut) {
    write_text("x.nii.gz", sound.substr(0, sound.size() - cut));
    EXPECT_EQ(refusal("x.nii.gz"), end) << cut << " bytes of the check sum are missing";
  }
  for (const std::size_t from_end : {std::size_t{6}, sound.size() / 2}) {
    std::string damaged = sound;
    damaged[sound.size() - from_end] ^= 1;
    write_text("x.nii.gz", damaged);
    EXPECT_EQ(refusal("x.nii.gz"), end) << from_end;
  }
  write_text("x.nii.gz", sound + "behind the end");
  EXPECT_EQ(refusal("x.nii.gz"), "") << "what stands behind compressed data is not part of them";
}

TEST(NiftiPair, IsReadFromTheFirstByteOfItsImage) {
  const Test_folder folder;
  Nifti_header header = made_header();
  header.vox_offset = NaN;
  write_text("x.hdr", bytes_of(header));
  EXPECT_EQ(refusal("x.hdr"), "File 'x.img' not found");
  write_text("x.img", bytes_of(made_values()));
  EXPECT_EQ(values_of(read("x.hdr")), made_values());
  write_text("x.img", bytes_of(made_values()).substr(0, 95));
  EXPECT_EQ(refusal("x.hdr"), "Unexpected end of NIfTI file 'x.hdr/.img' when reading volume 0");
  header.datatype = 1;
  write_text("x.hdr", bytes_of(header));
  EXPECT_EQ(refusal("x.hdr"), "Header of NIfTI file 'x.hdr/.img' defines an unsupported data type");
}

TEST(NiftiFile, ThatPromisesTooMuchIsRefusedBeforeItIsBelieved) {
  const Test_folder folder;
  Nifti_header header = made_header();
  const auto dims = [&](std::initializer_list<std::int16_t> d) {
    std::ranges::copy(d, header.dim);
  };
  dims({3, 2047, 1024, 1023, 1});
  write_gzip("x.nii.gz", single_file(header, bytes_of(made_values())));
  // Nearly 8.6 GB would not fit; what is there does.
  Nifti_options options;
  options.max_bytes = 4 << 20;
  EXPECT_EQ(refusal("x.nii.gz", options),
            "Unexpected end of NIfTI file 'x.nii.gz' when reading volume 0");

  // A stream that really goes on is read until the memory that it may take is used up.
  dims({4, 128, 128, 8, 100});
  write_gzip("x.nii.gz", single_file(header, std::string(std::size_t{50} << 20, '\0')));
  EXPECT_EQ(refusal("x.nii.gz", options), "Insufficient memory\n");

  dims({4, 4, 3, 2, 10});
  std::string ten;
  for (int i = 0; i < 10; ++i) ten += bytes_of(made_values());
  write_text("x.nii", single_file(header, ten));
  options.max_bytes = 959;
  EXPECT_EQ(refusal("x.nii", options), "Insufficient memory\n");
  options.max_bytes = 960;
  EXPECT_EQ(refusal("x.nii", options), "");
  options.max_volumes = 9;
  EXPECT_EQ(refusal("x.nii", options),
            "NIfTI file 'x.nii' has a wrong size (10 volumes, which is more than 9)");
}

TEST(NiftiScaling, IsAppliedWhenTheHeaderMeansIt) {
  const Test_folder folder;
  const float cases[][5] = {
      // slope, intercept, value of a stored 3, slope and intercept after
      {2, 1, 7, 1, 0}, {0, 5, 3, 0, 5}, {1, 5, 8, 1, 0}, {-1, 0, -3, 1, 0}, {INF, 0, 3, INF, 0},
  };
  for (const auto& [slope, inter, value, slope_after, inter_after] : cases) {
    Nifti_header header = made_header();
    set_type(4, 16)(header);
    header.scl_slope = slope;
    header.scl_inter = inter;
    write_text("x.nii", single_file(header, bytes_of(std::vector<std::int16_t>(24, 3))));
    const Nifti_image image = read("x.nii");
    EXPECT_EQ(values_of(image), std::vector<float>(24, value)) << slope << " " << inter;
    EXPECT_EQ(image.header.scl_slope, slope_after) << slope << " " << inter;
    EXPECT_EQ(image.header.scl_inter, inter_after) << slope << " " << inter;
    EXPECT_EQ(image.header.datatype, NIFTI_FLOAT32);
    EXPECT_EQ(image.header.bitpix, 32);
  }
}

/// An image of volumes whose values are their numbers.
void write_series(const char* path, int volumes) {
  Nifti_header header = made_header();
  set_dims({4, 4, 3, 2, volumes})(header);
  set_type(2, 8)(header);
  std::string values;
  for (int volume = 0; volume < volumes; ++volume)
    values += std::string(24, static_cast<char>(volume));
  write_text(path, single_file(header, values));
}

TEST(LoadNiftiDeathTest, FillsWhatTheCallerProvidesOrEndsTheProgram) {
  const Test_folder folder;
  write_series("1.nii", 1);
  write_series("3 %s.nii", 3);
  write_series("3001.nii", 3001);
  const auto ends = testing::ExitedWithCode(1);
  const char* const closing =
      "\\.\nThe program will close as this problem could cause fatal errors.";
  Nifti_header header{};
  std::int32_t n_volumes = 0;
  std::int32_t voxels = 0;
  std::array<Nifti_volume, 3> volumes;
  EXPECT_EQ(Q_load_nifti(header, n_volumes, voxels, volumes, "%i %s.nii", 3, "%s"), 2);
  EXPECT_EQ(n_volumes, 3);
  EXPECT_EQ(voxels, 24);
  EXPECT_EQ(header.dim[4], 3);
  for (std::size_t volume = 0; volume < 3; ++volume)
    EXPECT_EQ(volumes.at(volume)[23], static_cast<float>(volume));
  EXPECT_EXIT(Q_load_nifti(header, n_volumes, voxels, volumes, "no%s.nii", "%n"), ends,
              std::string("^File 'no%n.nii' not found") + closing);
  EXPECT_EXIT(
      Q_load_nifti(header, n_volumes, voxels, std::span(volumes).first(2), "3 %%s.nii"), ends,
      std::string("^NIfTI file '3 %s.nii' has a wrong size \\(3 volumes, which is more than 2\\)") +
          closing);
  Q_load_nifti_one_or_die(header, voxels, volumes[2], "%i.nii", 1);
  EXPECT_EQ(volumes[2][23], 0);
  EXPECT_EXIT(Q_load_nifti_one_or_die(header, voxels, volumes[0], "%i %%s", 3), ends,
              std::string("^'3 %s' does not contain one volume") + closing);
  EXPECT_EXIT(Q_load_nifti_one_or_die(header, voxels, volumes[0], "3001.nii"), ends,
              "^NIfTI file '3001.nii' has a wrong size");
}

}  // namespace
