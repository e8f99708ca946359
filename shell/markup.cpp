#include "shell/markup.h"

#include <algorithm>
#include <cstring>

#include "util/handles.h"
#include "util/q_string.h"

namespace {

using Markup_text = Q_g_memory<char>;
using Attributes = std::unique_ptr<PangoAttrList, Q_call<pango_attr_list_unref>>;
using Attribute_runs = std::unique_ptr<PangoAttrIterator, Q_call<pango_attr_iterator_destroy>>;

/// How an attribute's value reaches the tag property of the same meaning.
enum class Value { text, language, integer, boolean, scale, font, colour };

struct Tag_property {
  PangoAttrType attribute;
  const char* name;
  Value value;
};
constexpr Tag_property TAG_PROPERTIES[] = {
    {PANGO_ATTR_LANGUAGE, "language", Value::language},
    {PANGO_ATTR_FAMILY, "family", Value::text},
    {PANGO_ATTR_STYLE, "style", Value::integer},
    {PANGO_ATTR_WEIGHT, "weight", Value::integer},
    {PANGO_ATTR_VARIANT, "variant", Value::integer},
    {PANGO_ATTR_STRETCH, "stretch", Value::integer},
    {PANGO_ATTR_SIZE, "size", Value::integer},
    {PANGO_ATTR_FONT_DESC, "font-desc", Value::font},
    {PANGO_ATTR_FOREGROUND, "foreground-gdk", Value::colour},
    {PANGO_ATTR_BACKGROUND, "background-gdk", Value::colour},
    {PANGO_ATTR_UNDERLINE, "underline", Value::integer},
    {PANGO_ATTR_STRIKETHROUGH, "strikethrough", Value::boolean},
    {PANGO_ATTR_RISE, "rise", Value::integer},
    {PANGO_ATTR_SCALE, "scale", Value::scale},
};

void set_property(GtkTextTag* tag, const Tag_property& property, const PangoAttribute* attribute) {
  const auto integer = [&] { return reinterpret_cast<const PangoAttrInt*>(attribute)->value; };
  switch (property.value) {
    case Value::text:
      g_object_set(tag, property.name, reinterpret_cast<const PangoAttrString*>(attribute)->value,
                   nullptr);
      break;
    case Value::language:
      g_object_set(
          tag, property.name,
          pango_language_to_string(reinterpret_cast<const PangoAttrLanguage*>(attribute)->value),
          nullptr);
      break;
    case Value::integer:
      g_object_set(tag, property.name, integer(), nullptr);
      break;
    case Value::boolean:
      g_object_set(tag, property.name, integer() != 0 ? TRUE : FALSE, nullptr);
      break;
    case Value::scale:
      g_object_set(tag, property.name, reinterpret_cast<const PangoAttrFloat*>(attribute)->value,
                   nullptr);
      break;
    case Value::font:
      g_object_set(tag, property.name, reinterpret_cast<const PangoAttrFontDesc*>(attribute)->desc,
                   nullptr);
      break;
    case Value::colour: {
      const PangoColor& pango = reinterpret_cast<const PangoAttrColor*>(attribute)->color;
      const GdkColor colour{0, pango.red, pango.green, pango.blue};
      g_object_set(tag, property.name, &colour, nullptr);
      break;
    }
  }
}

Q_object<GtkTextTag> new_tag(PangoAttrIterator* run) {
  Q_object<GtkTextTag> tag(gtk_text_tag_new(nullptr));
  for (const Tag_property& property : TAG_PROPERTIES)
    if (const PangoAttribute* attribute = pango_attr_iterator_get(run, property.attribute))
      set_property(tag.get(), property, attribute);
  return tag;
}

void insert_runs(GtkTextBuffer* buffer, GtkTextIter* position, const char* text,
                 PangoAttrList* attributes, GtkTextTag* extra_tag) {
  GtkTextMark* mark = gtk_text_buffer_create_mark(buffer, nullptr, position, FALSE);
  const Attribute_runs run(pango_attr_list_get_iterator(attributes));
  const int length = static_cast<int>(std::strlen(text));
  do {
    int begin = 0;
    int end = 0;
    pango_attr_iterator_range(run.get(), &begin, &end);
    end = std::min(end, length);  // the last run is open-ended
    if (begin >= end) continue;
    const Q_object<GtkTextTag> tag = new_tag(run.get());
    gtk_text_tag_table_add(gtk_text_buffer_get_tag_table(buffer), tag.get());
    // A null extra tag ends the list of tags early, which is what is wanted.
    gtk_text_buffer_insert_with_tags(buffer, position, text + begin, end - begin, tag.get(),
                                     extra_tag, nullptr);
    gtk_text_buffer_get_iter_at_mark(buffer, position, mark);
  } while (pango_attr_iterator_next(run.get()));
  gtk_text_buffer_delete_mark(buffer, mark);
}

}  // namespace

void gtk_text_buffer_set_markup(GtkTextBuffer* buffer, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(markup, format);
  g_return_if_fail(GTK_IS_TEXT_BUFFER(buffer));
  if (markup.empty()) return;
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(buffer, &start, &end);
  gtk_text_buffer_delete(buffer, &start, &end);
  gtk_text_buffer_real_insert_markup(buffer, &start, markup.c_str(), nullptr);
}

void gtk_text_buffer_real_insert_markup(GtkTextBuffer* buffer, GtkTextIter* textiter,
                                        const char* markup, GtkTextTag* extra_tag) {
  // The expressions are part of what is logged, so they keep the toolkit's own spacing and names.
  // clang-format off
  g_return_if_fail(GTK_IS_TEXT_BUFFER (buffer));
  g_return_if_fail(textiter != NULL);
  g_return_if_fail(markup != NULL);
  g_return_if_fail(gtk_text_iter_get_buffer (textiter) == buffer);
  // clang-format on
  if (*markup == '\0') return;

  PangoAttrList* raw_attributes = nullptr;
  char* raw_text = nullptr;
  GError* raw_error = nullptr;
  if (!pango_parse_markup(markup, -1, 0, &raw_attributes, &raw_text, nullptr, &raw_error)) {
    const Q_g_error error(raw_error);
    g_warning("Invalid markup string: %s", error->message);
    return;
  }
  const Attributes attributes(raw_attributes);
  const Markup_text text(raw_text);
  if (attributes == nullptr)
    gtk_text_buffer_insert(buffer, textiter, text.get(), -1);
  else
    insert_runs(buffer, textiter, text.get(), attributes.get(), extra_tag);
}
