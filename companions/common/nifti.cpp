#include "companions/common/nifti.h"

// The NIfTI-1 single-file format as its data format working group defines it (Cox et al. 2004): a
// header of 348 bytes, four bytes that announce extensions, and the voxels from vox_offset on.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <Eigen/Geometry>
#include <Eigen/SVD>
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>

#include "companions/common/error.h"
#include "util/handles.h"

namespace {

static_assert(std::endian::native == std::endian::little, "files are written as memory holds them");

struct Header {
  std::int32_t sizeof_hdr;
  char unused_data_type[10];
  char unused_db_name[18];
  std::int32_t unused_extents;
  std::int16_t unused_session_error;
  char regular;
  char dim_info;
  std::int16_t dim[8];
  float intent_p1, intent_p2, intent_p3;
  std::int16_t intent_code, datatype, bitpix, slice_start;
  float pixdim[8];
  float vox_offset, scl_slope, scl_inter;
  std::int16_t slice_end;
  char slice_code, xyzt_units;
  float cal_max, cal_min, slice_duration, toffset;
  std::int32_t glmax, glmin;
  char descrip[80];
  char aux_file[24];
  std::int16_t qform_code, sform_code;
  float quatern[3];
  float qoffset[3];
  float srow[3][4];
  char intent_name[16];
  char magic[4];
};
static_assert(sizeof(Header) == 348);

constexpr int nifti2_header_size = 540;
constexpr int first_voxel_offset = 352;
constexpr double max_voxel_offset = 1e9;
constexpr std::size_t max_voxels = std::size_t(512) << 20;
constexpr std::size_t chunk_voxels = std::size_t(1) << 18;
constexpr std::int16_t aligned_code = 2;  // placed in some space that is not a standard one
constexpr std::int16_t float_type = 16;
constexpr char millimetres = 2;
constexpr char magic_single_file[4] = {'n', '+', '1', '\0'};
constexpr char magic_pair[4] = {'n', 'i', '1', '\0'};

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw Refusal("'" + path + "': " + reason + ".");
}

template <typename T>
T swapped(T value) {
  auto bytes = std::bit_cast<std::array<char, sizeof(T)>>(value);
  std::reverse(bytes.begin(), bytes.end());
  return std::bit_cast<T>(bytes);
}

template <typename... T>
void swap_each(T&... fields) {
  const auto swap_field = [](auto& field) {
    if constexpr (std::is_array_v<std::remove_reference_t<decltype(field)>>)
      for (auto& element : field) element = swapped(element);
    else
      field = swapped(field);
  };
  (swap_field(fields), ...);
}

/// Turns the fields that the reader looks at; the others stay as they are.
void swap_header(Header& h) {
  swap_each(h.sizeof_hdr, h.dim, h.intent_p1, h.intent_code, h.datatype, h.pixdim, h.vox_offset,
            h.scl_slope, h.scl_inter, h.qform_code, h.sform_code, h.quatern, h.qoffset, h.srow[0],
            h.srow[1], h.srow[2]);
}

/// Why the last call on the stream failed.
std::string stream_error(gzFile file) {
  int code = Z_OK;
  const char* text = gzerror(file, &code);
  if (code == Z_ERRNO) return std::strerror(errno);
  if (code == Z_MEM_ERROR) return "out of memory";
  if (code == Z_BUF_ERROR) return "the compressed data end early";
  return std::string("the compressed data are damaged (") + text + ")";
}

/// Reads up to that many bytes; fewer only at the end of the data.
std::size_t read_bytes(gzFile file, const std::string& path, void* to, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const int got = gzread(file, static_cast<char*>(to) + done, unsigned(size - done));
    if (got < 0) refuse(path, "cannot be read: " + stream_error(file));
    if (got == 0) break;
    done += std::size_t(got);
  }
  return done;
}

Q_gz_file open_to_read(const std::string& path) {
  // Not blocking, so that a named pipe is refused below instead of waited for.
  Q_fd descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!descriptor || fstat(descriptor.get(), &status) != 0)
    refuse(path, std::string("cannot be opened: ") + std::strerror(errno));
  if (!S_ISREG(status.st_mode)) refuse(path, "is not a file");
  Q_gz_file file(gzdopen(descriptor.get(), "rb"));
  if (file == nullptr) refuse(path, "cannot be opened: out of memory");
  [[maybe_unused]] const int owned_by_file = descriptor.release();
  gzbuffer(file.get(), 1 << 17);
  return file;
}

/// Reads the header into the machine's byte order; true when the file has the other one.
bool read_header(gzFile file, const std::string& path, Header& header) {
  if (read_bytes(file, path, &header, sizeof header) < sizeof header)
    refuse(path, "is not a NIfTI-1 image: it is shorter than a header");
  const bool other_order = header.sizeof_hdr == swapped(std::int32_t(sizeof header));
  if (header.sizeof_hdr == nifti2_header_size ||
      header.sizeof_hdr == swapped(std::int32_t(nifti2_header_size)))
    refuse(path, "is a NIfTI-2 image; only NIfTI-1 is read");
  if (header.sizeof_hdr != int(sizeof header) && !other_order)
    refuse(path, "is not a NIfTI-1 image");
  if (std::memcmp(header.magic, magic_pair, sizeof magic_pair) == 0)
    refuse(path, "is a header whose voxels are in another file; only single files are read");
  if (std::memcmp(header.magic, magic_single_file, sizeof magic_single_file) != 0)
    refuse(path, "is not a NIfTI-1 image");
  if (other_order) swap_header(header);
  return other_order;
}

std::array<int, 3> checked_size(const std::string& path, const Header& h) {
  const int dimensions = h.dim[0];
  if (dimensions < 1 || dimensions > 7)
    refuse(path, "the header is damaged: " + std::to_string(dimensions) + " dimensions");
  if (dimensions < 3)
    refuse(path, "is not a volume: it has " + std::to_string(dimensions) + " dimensions");
  std::size_t volumes = 1;
  for (int d = 1; d <= dimensions; ++d) {
    if (h.dim[d] < 1)
      refuse(path, "the header is damaged: the size along dimension " + std::to_string(d) + " is " +
                       std::to_string(h.dim[d]));
    if (d > 3 && h.dim[d] > 1) volumes = std::max(volumes, std::size_t(h.dim[d]));
  }
  if (volumes > 1) refuse(path, "holds more than one volume");
  const std::array<int, 3> size{h.dim[1], h.dim[2], h.dim[3]};
  if (std::size_t(size[0]) * std::size_t(size[1]) * std::size_t(size[2]) > max_voxels)
    refuse(path, "is too large: " + std::to_string(size[0]) + " x " + std::to_string(size[1]) +
                     " x " + std::to_string(size[2]) + " voxels");
  return size;
}

/// The affine of the header's quaternion ("method 2" of the format).
Eigen::Matrix4d quaternion_affine(const std::string& path, const Header& h) {
  const Eigen::Vector3d bcd(h.quatern[0], h.quatern[1], h.quatern[2]);
  if (!(bcd.squaredNorm() < 1.01)) refuse(path, "the header is damaged: its qform is no rotation");
  const double a = std::sqrt(std::max(0.0, 1 - bcd.squaredNorm()));
  const double qfac = h.pixdim[0] < 0 ? -1 : 1;
  Eigen::Matrix4d affine = Eigen::Matrix4d::Identity();
  affine.topLeftCorner<3, 3>() =
      Eigen::Quaterniond(a, bcd.x(), bcd.y(), bcd.z()).normalized().toRotationMatrix() *
      Eigen::DiagonalMatrix<double, 3>(h.pixdim[1], h.pixdim[2], qfac * h.pixdim[3]);
  affine.topRightCorner<3, 1>() << h.qoffset[0], h.qoffset[1], h.qoffset[2];
  return affine;
}

/// Refuses an affine that does not place the voxels at distinct, finite points.
void check_affine(const std::string& path, const Eigen::Matrix4d& affine) {
  const Eigen::Matrix3d axes = affine.topLeftCorner<3, 3>();
  const Eigen::RowVector3d lengths = axes.colwise().norm();
  const bool sane = affine.allFinite() && lengths.minCoeff() > 1e-4 && lengths.maxCoeff() < 1e4 &&
                    std::abs(axes.determinant()) > 1e-3 * lengths.prod();
  if (!sane) refuse(path, "the header does not place the voxels in space");
}

Space space_of(int code) {
  if (code == int(Space::mni)) return Space::mni;
  if (code == int(Space::talairach)) return Space::talairach;
  return Space::unknown;
}

/// Sets the place of the voxels, still in the file's order: sform, else qform, else the sizes.
void place(const std::string& path, const Header& h, Image& image) {
  Eigen::Matrix4d& affine = image.grid.to_mm;
  image.space = Space::unknown;
  if (h.sform_code > 0) {
    for (int row = 0; row < 3; ++row)
      for (int column = 0; column < 4; ++column) affine(row, column) = h.srow[row][column];
    image.space = space_of(h.sform_code);
  } else if (h.qform_code > 0) {
    affine = quaternion_affine(path, h);
    image.space = space_of(h.qform_code);
  } else {
    affine.diagonal().head<3>() << h.pixdim[1], h.pixdim[2], h.pixdim[3];
  }
  check_affine(path, affine);
}

struct Scaling {
  double slope = 1, intercept = 0;
};

Scaling checked_scaling(const std::string& path, const Header& h) {
  // The format says that a slope of 0 means unscaled; writers also leave NaN there.
  if (h.scl_slope == 0 || !std::isfinite(h.scl_slope)) return {};
  if (!std::isfinite(h.scl_inter)) refuse(path, "the header is damaged: scl_inter is not finite");
  return {h.scl_slope, h.scl_inter};
}

template <typename T>
void append_as(std::span<const char> bytes, bool other_order, Scaling scaling,
               std::vector<float>& values) {
  const std::size_t first = values.size();
  values.resize(first + bytes.size() / sizeof(T));
  for (std::size_t at = first; at < values.size(); ++at) {
    T raw;
    std::memcpy(&raw, bytes.data() + (at - first) * sizeof raw, sizeof raw);
    if (other_order) raw = swapped(raw);
    values[at] = float(double(raw) * scaling.slope + scaling.intercept);
  }
}

struct VoxelType {
  int code;
  std::size_t bytes;
  void (*append)(std::span<const char>, bool, Scaling, std::vector<float>&);
};

constexpr VoxelType voxel_types[] = {
    {2, 1, append_as<std::uint8_t>},    {4, 2, append_as<std::int16_t>},
    {8, 4, append_as<std::int32_t>},    {16, 4, append_as<float>},
    {64, 8, append_as<double>},         {256, 1, append_as<std::int8_t>},
    {512, 2, append_as<std::uint16_t>}, {768, 4, append_as<std::uint32_t>},
    {1024, 8, append_as<std::int64_t>}, {1280, 8, append_as<std::uint64_t>},
};

const VoxelType& checked_type(const std::string& path, const Header& h) {
  for (const VoxelType& type : voxel_types)
    if (type.code == h.datatype) return type;
  refuse(path, "the voxels are of a type that is not read (datatype " + std::to_string(h.datatype) +
                   "); integers and floating-point numbers are");
}

void read_voxels(gzFile file, const std::string& path, const Header& h, bool other_order,
                 Image& image) {
  const VoxelType& type = checked_type(path, h);
  const Scaling scaling = checked_scaling(path, h);
  if (!(h.vox_offset >= first_voxel_offset && h.vox_offset <= max_voxel_offset))
    refuse(path, "the header is damaged: the voxels cannot begin at byte " +
                     std::to_string(h.vox_offset));
  if (gzseek(file, z_off_t(h.vox_offset), SEEK_SET) < 0)
    refuse(path, "cannot be read: " + stream_error(file));

  // The vector grows with what is really there: a header may promise more than the file holds.
  const std::size_t total = image.grid.voxels();
  std::vector<char> chunk(std::min(total, chunk_voxels) * type.bytes);
  while (image.values.size() < total) {
    const std::size_t wanted = std::min(chunk.size(), (total - image.values.size()) * type.bytes);
    const std::size_t got = read_bytes(file, path, chunk.data(), wanted);
    type.append(std::span(chunk).first(got - got % type.bytes), other_order, scaling, image.values);
    if (got < wanted)
      refuse(path, "ends early: it holds " + std::to_string(image.values.size()) + " of " +
                       std::to_string(total) + " voxels");
  }
  // zlib checks the sum at the end of the compressed data only when it is asked for what follows.
  char beyond = 0;
  read_bytes(file, path, &beyond, 1);
}

/// The voxel axis that runs closest to each of the axes right, front and up.
std::array<int, 3> closest_axes(const Eigen::Matrix3d& axes) {
  const Eigen::Matrix3d cosines = axes.colwise().normalized().cwiseAbs();
  std::array<int, 3> order{0, 1, 2};
  std::array<int, 3> best = order;
  double best_sum = -1;
  do {
    const double sum = cosines(0, order[0]) + cosines(1, order[1]) + cosines(2, order[2]);
    if (sum > best_sum + 1e-9) {
      best_sum = sum;
      best = order;
    }
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

/// Permutes and mirrors the voxels so that i runs to the right, j to the front and k up, as far as
/// an oblique image allows. Every voxel keeps its value and its place in the head.
void turn_to_ras(Image& image) {
  const Grid from = image.grid;
  const std::array<int, 3> axis = closest_axes(from.to_mm.topLeftCorner<3, 3>());
  Eigen::Matrix4d to_old = Eigen::Matrix4d::Zero();
  to_old(3, 3) = 1;
  std::array<std::ptrdiff_t, 3> step{};
  std::ptrdiff_t start = 0;
  for (int w = 0; w < 3; ++w) {
    const int a = axis[std::size_t(w)];
    const int length = from.size[std::size_t(a)];
    const std::ptrdiff_t stride = a == 0   ? 1
                                  : a == 1 ? from.size[0]
                                           : std::ptrdiff_t(from.size[0]) * from.size[1];
    const bool mirrored = from.to_mm(w, a) < 0;
    image.grid.size[std::size_t(w)] = length;
    to_old(a, w) = mirrored ? -1 : 1;
    to_old(a, 3) = mirrored ? length - 1 : 0;
    step[std::size_t(w)] = mirrored ? -stride : stride;
    if (mirrored) start += stride * (length - 1);
  }
  if (to_old.isIdentity(0)) return;
  image.grid.to_mm = from.to_mm * to_old;
  std::vector<float> turned;
  turned.reserve(image.values.size());
  for (int k = 0; k < image.grid.size[2]; ++k)
    for (int j = 0; j < image.grid.size[1]; ++j)
      for (int i = 0; i < image.grid.size[0]; ++i)
        turned.push_back(
            image.values[std::size_t(start + i * step[0] + j * step[1] + k * step[2])]);
  image.values = std::move(turned);
}

/// The longest prefix of at most 79 bytes that does not end within a UTF-8 character.
std::string cut_description(const std::string& text) {
  std::size_t length = std::min(text.size(), sizeof(Header::descrip) - 1);
  if (length < text.size())
    while (length > 0 && (text[length] & 0xC0) == 0x80) --length;
  return text.substr(0, length);
}

void set_qform(const Eigen::Matrix4d& affine, Header& h) {
  Eigen::Matrix3d rotation = affine.topLeftCorner<3, 3>();
  for (int column = 0; column < 3; ++column)
    h.pixdim[1 + column] = float(rotation.col(column).norm());
  rotation.colwise().normalize();
  h.pixdim[0] = 1;
  if (rotation.determinant() < 0) {
    h.pixdim[0] = -1;
    rotation.col(2) *= -1;
  }
  // A sheared affine has no quaternion; the closest rotation stands for it, the sform is exact.
  if (!rotation.isUnitary(1e-6)) {
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(rotation,
                                                Eigen::ComputeFullU | Eigen::ComputeFullV);
    rotation = svd.matrixU() * svd.matrixV().transpose();
  }
  Eigen::Quaterniond quaternion(rotation);
  if (quaternion.w() < 0) quaternion.coeffs() *= -1;
  for (int part = 0; part < 3; ++part) {
    h.quatern[part] = float(quaternion.vec()[part]);
    h.qoffset[part] = float(affine(part, 3));
  }
}

Header header_of(const Image& image) {
  Header h{};
  h.sizeof_hdr = int(sizeof h);
  h.regular = 'r';
  std::fill(std::begin(h.dim), std::end(h.dim), std::int16_t(1));
  h.dim[0] = 3;
  for (int d = 0; d < 3; ++d) h.dim[1 + d] = std::int16_t(image.grid.size[std::size_t(d)]);
  h.intent_code = std::int16_t(image.intent_code);
  h.intent_p1 = image.intent_p1;
  h.datatype = float_type;
  h.bitpix = 8 * sizeof(float);
  h.vox_offset = first_voxel_offset;
  h.scl_slope = 1;
  h.xyzt_units = millimetres;
  const std::string description = cut_description(image.description);
  std::memcpy(h.descrip, description.data(), description.size());
  // Readers pass over an affine whose code is 0, so an unknown space has a code as well.
  h.sform_code = h.qform_code =
      image.space == Space::unknown ? aligned_code : std::int16_t(image.space);
  for (int row = 0; row < 3; ++row)
    for (int column = 0; column < 4; ++column)
      h.srow[row][column] = float(image.grid.to_mm(row, column));
  set_qform(image.grid.to_mm, h);
  std::memcpy(h.magic, magic_single_file, sizeof h.magic);
  return h;
}

[[noreturn]] void refuse_writing(const std::string& path, const std::string& reason) {
  refuse(path, "cannot be written: " + reason);
}

void write_bytes(gzFile file, const std::string& path, std::span<const char> bytes) {
  while (!bytes.empty()) {
    const std::size_t size = std::min(bytes.size(), std::size_t(1) << 20);
    if (gzwrite(file, bytes.data(), unsigned(size)) != int(size))
      refuse_writing(path, stream_error(file));
    bytes = bytes.subspan(size);
  }
}

}  // namespace

const Grid& mni_grid() {
  static const Grid grid = [] {
    Grid g;
    g.size = {91, 109, 91};
    g.to_mm << 2, 0, 0, -90,  //
        0, 2, 0, -126,        //
        0, 0, 2, -72,         //
        0, 0, 0, 1;
    return g;
  }();
  return grid;
}

namespace {

/// The image of the header alone, not yet turned, with what is needed to read its voxels.
Image placed_image(gzFile file, const std::string& path, Header& header, bool& other_order) {
  other_order = read_header(file, path, header);
  Image image;
  image.grid.size = checked_size(path, header);
  place(path, header, image);
  image.intent_code = header.intent_code;
  image.intent_p1 = header.intent_p1;
  image.description.assign(header.descrip, strnlen(header.descrip, sizeof header.descrip));
  return image;
}

}  // namespace

std::string read_description(const std::string& path) {
  const Q_gz_file file = open_to_read(path);
  Header header{};
  bool other_order = false;
  return placed_image(file.get(), path, header, other_order).description;
}

Image read_image(const std::string& path) {
  const Q_gz_file file = open_to_read(path);
  Header header{};
  bool other_order = false;
  Image image = placed_image(file.get(), path, header, other_order);
  try {
    read_voxels(file.get(), path, header, other_order, image);
    turn_to_ras(image);
  } catch (const std::bad_alloc&) {
    refuse(path, "is too large for the memory of this computer");
  }
  return image;
}

void write_image(const std::string& path, const Image& image) {
  const auto storable = [](int length) { return length >= 1 && length <= INT16_MAX; };
  if (!std::all_of(image.grid.size.begin(), image.grid.size.end(), storable) ||
      image.values.size() != image.grid.voxels())
    throw std::invalid_argument("write_image: the values do not fill the grid");

  Q_fd descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!descriptor) refuse_writing(path, std::strerror(errno));
  // zlib writes neither a name nor a time into the gzip header; "T" means no compression.
  Q_gz_file file(gzdopen(descriptor.get(), path.ends_with(".gz") ? "wb6" : "wbT"));
  if (file == nullptr) refuse_writing(path, "out of memory");
  [[maybe_unused]] const int owned_by_file = descriptor.release();
  gzbuffer(file.get(), 1 << 17);

  const Header header = header_of(image);
  constexpr std::array<char, first_voxel_offset - sizeof(Header)> no_extension{};
  write_bytes(file.get(), path, std::span(reinterpret_cast<const char*>(&header), sizeof header));
  write_bytes(file.get(), path, no_extension);
  write_bytes(file.get(), path,
              std::span(reinterpret_cast<const char*>(image.values.data()),
                        image.values.size() * sizeof(float)));
  errno = 0;
  if (const int code = gzclose(file.release()); code != Z_OK)
    refuse_writing(path, errno != 0 ? std::strerror(errno) : "error " + std::to_string(code));
}
