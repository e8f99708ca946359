#include "dialogs/input_item.h"

#include <cassert>
#include <utility>

namespace {

/// The item to fill, with its label and kind set.
Q_input_item& begin(std::span<Q_input_item> items, int index, const char* label, char kind) {
  assert(index >= 0 && static_cast<std::size_t>(index) < items.size());
  Q_input_item& item = items[static_cast<std::size_t>(index)];
  item.label = label;
  item.kind = kind;
  return item;
}

/// Points the item's options at texts; `owned` keeps the array of pointers alive.
void point_at(Q_input_item& item, std::unique_ptr<Q_item_options> owned,
              const Q_string_list& texts) {
  for (const std::string& text : texts) owned->pointers.push_back(text.c_str());
  item.n_options = static_cast<std::int32_t>(texts.size());
  item.options = owned->pointers.data();
  item.owned_options = std::move(owned);
}

/// Makes the item own the texts that its options point at.
void keep(Q_input_item& item, Q_string_list texts) {
  auto owned = std::make_unique<Q_item_options>();
  owned->texts = std::move(texts);
  const Q_string_list& kept = owned->texts;
  point_at(item, std::move(owned), kept);
}

}  // namespace

void Q_input_item_str(std::span<Q_input_item> items, int index, const char* label,
                      const char* text) {
  begin(items, index, label, 's').text = text;
}

void Q_input_item_num(std::span<Q_input_item> items, int index, const char* label, int precision,
                      float min, float max, float value) {
  Q_input_item& item = begin(items, index, label, 'n');
  item.precision = precision;
  item.min = min;
  item.max = max;
  item.value = value;
}

void Q_input_item_opt(std::span<Q_input_item> items, int index, const char* label, int n_options,
                      const char* const* options, int position) {
  Q_input_item& item = begin(items, index, label, 'o');
  item.n_options = n_options;
  item.options = options;
  item.value = static_cast<float>(position);
}

void Q_input_item_opt(std::span<Q_input_item> items, int index, const char* label,
                      const Q_string_list& options, int position) {
  Q_input_item& item = begin(items, index, label, 'o');
  point_at(item, std::make_unique<Q_item_options>(), options);
  item.value = static_cast<float>(position);
}

void Q_input_item_temp_opt(std::span<Q_input_item> items, int index, const char* label,
                           int position, Q_string_list options) {
  Q_input_item& item = begin(items, index, label, 't');
  keep(item, std::move(options));
  item.value = static_cast<float>(position);
}

void Q_input_item_file(std::span<Q_input_item> items, int index, const char* label,
                       const char* text, const char* const* patterns) {
  Q_input_item& item = begin(items, index, label, 'f');
  item.text = text;
  item.options = patterns;
}

void Q_input_item_file(std::span<Q_input_item> items, int index, const char* label,
                       const char* text, const char* pattern) {
  Q_input_item& item = begin(items, index, label, 'f');
  item.text = text;
  keep(item, {pattern});
}

void Q_input_item_boolean(std::span<Q_input_item> items, int index, const char* label, bool value) {
  begin(items, index, label, 'b').value = value ? 1 : 0;
}

void Q_input_item_voxel(std::span<Q_input_item> items, int index, const char* label, std::int16_t x,
                        std::int16_t y, std::int16_t z) {
  begin(items, index, label, 'v').voxel = {x, y, z};
}
