#include "shell/console.h"

#include <algorithm>
#include <ctime>
#include <string>

#include "shell/busy.h"
#include "shell/markup.h"
#include "util/handles.h"
#include "util/q_string.h"

std::array<GtkTextBuffer*, 100> Qw_v_OutputBuffer{};
std::array<GtkWidget*, 100> Qw_v_OutputView{};

namespace {

constexpr int VIEW_MARGIN = 10;  // pixels

struct tm local_time() {
  const std::time_t now = std::time(nullptr);
  struct tm parts {};
  localtime_r(&now, &parts);
  return parts;
}

/// Prints "hh:mm:ss - ", which is grey together with `grey_text`, and then `text`.
void print_stamped(int pane, const char* grey_text, const char* text) {
  const struct tm t = local_time();
  Q_print("", pane, "<span color=\"#666666\">%i%i:%i%i:%i%i - %s</span>%s", t.tm_hour / 10,
          t.tm_hour % 10, t.tm_min / 10, t.tm_min % 10, t.tm_sec / 10, t.tm_sec % 10, grey_text,
          text);
}

/// The text with its entities replaced by the characters they stand for. Text with tags stays as it
/// is.
std::string without_entities(const std::string& text) {
  char* raw = nullptr;
  if (text.find('<') == std::string::npos)
    pango_parse_markup(text.c_str(), -1, 0, nullptr, &raw, nullptr, nullptr);
  const Q_g_memory<char> plain(raw);
  return plain == nullptr ? text : plain.get();
}

void append_markup(int pane, const std::string& markup) {
  GtkTextBuffer* buffer = Qw_v_OutputBuffer.at(static_cast<std::size_t>(pane));
  if (buffer == nullptr) return;
  GtkTextIter end;
  gtk_text_buffer_get_end_iter(buffer, &end);
  // A recorded command never continues a line that the user has left open.
  if (pane == Q_BATCH_PANE && !markup.empty() && !gtk_text_iter_starts_line(&end))
    gtk_text_buffer_insert(buffer, &end, "\n", 1);
  gtk_text_buffer_real_insert_markup(buffer, &end, markup.c_str(), nullptr);
}

/// Empties a pane's slot before its widgets are destroyed.
void forget_pane(GtkWidget* view, gpointer /*data*/) {
  const auto slot = std::ranges::find(Qw_v_OutputView, view) - Qw_v_OutputView.begin();
  if (static_cast<std::size_t>(slot) == Qw_v_OutputView.size()) return;
  Qw_v_OutputView[static_cast<std::size_t>(slot)] = nullptr;
  Qw_v_OutputBuffer[static_cast<std::size_t>(slot)] = nullptr;
}

}  // namespace

GtkWidget* Q_new_pane(std::size_t slot, bool editable) {
  GtkTextBuffer* buffer = gtk_text_buffer_new(nullptr);
  GtkWidget* view = gtk_text_view_new_with_buffer(buffer);
  g_object_unref(buffer);
  Qw_v_OutputBuffer.at(slot) = buffer;
  Qw_v_OutputView.at(slot) = view;
  g_signal_connect(view, "destroy", G_CALLBACK(forget_pane), nullptr);
  return Q_input_new_textframe(buffer, view, editable);
}

bool Q_console_gone() {
  return Qw_v_OutputBuffer[0] == nullptr;
}

void Q_print(const char* attributes, int pane, const char* format, ...) {
  // A full Q string with a line feed or a span around it is longer than a Q string can be, and must
  // not lose its end.
  std::va_list arguments;
  va_start(arguments, format);
  std::string markup = Q_vformat(format, arguments);
  va_end(arguments);
  if (*attributes != '\0')
    markup = std::string("<span ").append(attributes).append(">").append(markup).append("</span>");
  append_markup(pane, markup);
  Q_scroll_to_end(pane);
  Q_process_events();
}

void Q_print_action(int pane, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  if (Qw_WorkingWindowLabel != nullptr) {
    const Q_g_memory<char> valid(g_utf8_make_valid(without_entities(text.str()).c_str(), -1));
    gtk_label_set_text(GTK_LABEL(Qw_WorkingWindowLabel), valid.get());
  }
  print_stamped(pane, "", (text.str() + "...").c_str());
}

void Q_print_done(int pane) {
  print_stamped(pane, "<b>DONE</b>", "\n\n");
}

void Q_print_cancelled(int pane) {
  print_stamped(pane, "<b>CANCELLED</b>", "\n\n");
}

void Q_print_warning(int pane, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  Q_print(Q_RED, pane, "WARNING: %s\n", text.c_str());
}

void Q_scroll_to_end(int pane) {
  const auto slot = static_cast<std::size_t>(pane);
  if (Qw_v_OutputBuffer.at(slot) == nullptr) return;
  GtkTextIter end;
  gtk_text_buffer_get_end_iter(Qw_v_OutputBuffer.at(slot), &end);
  // Scrolling to a mark waits until the new lines have their heights; an iterator would not.
  GtkTextMark* mark = gtk_text_buffer_create_mark(Qw_v_OutputBuffer.at(slot), nullptr, &end, FALSE);
  gtk_text_view_scroll_to_mark(GTK_TEXT_VIEW(Qw_v_OutputView.at(slot)), mark, 0.0, FALSE, 0.0, 0.0);
  gtk_text_buffer_delete_mark(Qw_v_OutputBuffer.at(slot), mark);
}

void Q_process_events() {
  while (gtk_events_pending()) gtk_main_iteration();
}

GtkWidget* Q_input_new_textframe(GtkTextBuffer* /*buffer*/, GtkWidget* view, bool editable) {
  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER,
                                 GTK_POLICY_ALWAYS);
  gtk_container_add(GTK_CONTAINER(scrolled), view);

  GtkTextView* text_view = GTK_TEXT_VIEW(view);
  gtk_text_view_set_editable(text_view, editable);
  gtk_text_view_set_cursor_visible(text_view, editable);
  gtk_text_view_set_left_margin(text_view, VIEW_MARGIN);
  gtk_text_view_set_right_margin(text_view, VIEW_MARGIN);
  gtk_text_view_set_wrap_mode(text_view, GTK_WRAP_WORD);
  // A view asks for the width of its longest word, which would widen the window.
  gtk_widget_set_size_request(view, 1, -1);
  // The text stands on the base colour; the margins around it are painted in the other one.
  const GdkColor white{0, 65535, 65535, 65535};
  gtk_widget_modify_bg(view, GTK_STATE_NORMAL, &white);
  gtk_widget_modify_base(view, GTK_STATE_NORMAL, &white);

  GtkWidget* frame = gtk_frame_new(nullptr);
  gtk_container_add(GTK_CONTAINER(frame), scrolled);
  return frame;
}
