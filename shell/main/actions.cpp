#include "shell/main/actions.h"

#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/globals.h"
#include "analyses/lm.h"
#include "analyses/mean.h"
#include "analyses/multi.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "dialogs/help.h"
#include "imaging/convert_img.h"
#include "imaging/convert_t.h"
#include "integrations/settings_dialog.h"
#include "integrations/spm_extension.h"
#include "integrations/update_check.h"
#include "shell/batch.h"
#include "shell/main/main_window.h"
#include "workspace/edit_table.h"
#include "workspace/working_folder.h"

namespace {

using Handler = void (*)();

struct Action_row {
  const char* name;
  const char* stock_id;
  const char* label;
  Handler handler;
};

constexpr Handler MENU = nullptr;

constexpr Action_row ACTIONS[] = {
    {"menu_MetaAnalyses", nullptr, "_Meta-analyses", MENU},
    {"cd", "gtk-directory", "_Change meta-analysis", kvo3_cd},
    {"edit_table", "gtk-edit", "KVO _table editor", kvo3_edit_table},
    {"convert_t", "gtk-convert", "Convert to t values", kvo3_convert_t},
    {"convert_img", "gtk-select-color", "Convert images", kvo3_convert_img},
    {"pp", "gtk-execute", "_Preprocessing", kvo3_pp},
    {"quit", "gtk-quit", "_Quit", kvo3_main_quit},
    {"menu_Statistics", nullptr, "_Statistics", MENU},
    {"globals", "gtk-zoom-out", "_Globals", kvo3_globals},
    {"mean", "gtk-execute", "_Mean", kvo3_mean},
    {"lm", "gtk-execute", "_Linear model", kvo3_lm},
    {"threshold", "gtk-zoom-fit", "_Threshold", kvo3_threshold},
    {"multi", "gtk-dnd-multiple", "_Multimodal", kvo3_multi},
    {"menu_Tools", nullptr, "_Tools", MENU},
    {"create_mask", "gtk-add", "Create a _mask", kvo3_dialog_create_roimask},
    {"extract", "gtk-color-picker", "_Extract", kvo3_extract},
    {"save_batch", "gtk-save", "_Save batch", kvo3_batch_save},
    {"run_batch", "gtk-execute", "_Run batch", kvo3_batch_run},
    {"settings", "gtk-preferences", "Se_ttings", kvo3_settings},
    {"spm", "gtk-connect", "SPM _extension", kvo3_spm_extension},
    {"menu_help", nullptr, "_Help", MENU},
    {"help", "gtk-help", "KVO _help", kvo3_help},
    {"about", "gtk-about", "_About KVO", kvo3_about},
    {"check_updates", "gtk-refresh", "Check for _updates", kvo3_check_updates},
};

void run_handler(GtkAction* action, gpointer /*data*/) {
  for (const Action_row& row : ACTIONS)
    if (g_str_equal(gtk_action_get_name(action), row.name)) row.handler();
}

}  // namespace

GtkActionGroup* kvo3_new_actions() {
  GtkActionGroup* group = gtk_action_group_new("");
  for (const Action_row& row : ACTIONS) {
    GtkAction* action = gtk_action_new(row.name, row.label, nullptr, row.stock_id);
    if (row.handler != nullptr)
      g_signal_connect(action, "activate", G_CALLBACK(run_handler), nullptr);
    // Without the empty accelerator, stock items would bring their own.
    gtk_action_group_add_action_with_accel(group, action, "");
    g_object_unref(action);
  }
  return group;
}

const char* const kvo3_ui_description = R"(<ui>
  <menubar name="menu">
    <menu name="menu_MetaAnalyses" action="menu_MetaAnalyses">
      <menuitem name="cd" action="cd"/>
      <menuitem name="edit_table" action="edit_table"/>
      <separator/>
      <menuitem name="convert_t" action="convert_t"/>
      <menuitem name="convert_img" action="convert_img"/>
      <separator/>
      <menuitem name="pp" action="pp"/>
      <separator/>
      <menuitem name="quit" action="quit"/>
    </menu>
    <menu name="menu_Statistics" action="menu_Statistics">
      <menuitem name="globals" action="globals"/>
      <separator/>
      <menuitem name="mean" action="mean"/>
      <menuitem name="lm" action="lm"/>
      <separator/>
      <menuitem name="threshold" action="threshold"/>
      <separator/>
      <menuitem name="multi" action="multi"/>
    </menu>
    <menu name="menu_Tools" action="menu_Tools">
      <menuitem name="create_mask" action="create_mask"/>
      <menuitem name="extract" action="extract"/>
      <separator/>
      <menuitem name="save_batch" action="save_batch"/>
      <menuitem name="run_batch" action="run_batch"/>
      <separator/>
      <menuitem name="spm" action="spm"/>
      <menuitem name="settings" action="settings"/>
    </menu>
    <menu name="menu_help" action="menu_help">
      <menuitem name="help" action="help"/>
      <menuitem name="check_updates" action="check_updates"/>
      <separator/>
      <menuitem name="about" action="about"/>
    </menu>
  </menubar>
  <toolbar name="toolbar1">
    <toolitem name="cd" action="cd"/>
    <toolitem name="edit_table" action="edit_table"/>
    <separator/>
    <toolitem name="convert_t" action="convert_t"/>
    <toolitem name="convert_img" action="convert_img"/>
    <separator/>
    <toolitem name="globals" action="globals"/>
    <separator/>
    <toolitem name="save_batch" action="save_batch"/>
    <toolitem name="run_batch" action="run_batch"/>
    <separator/>
    <toolitem name="help" action="help"/>
    <separator/>
    <toolitem name="quit" action="quit"/>
  </toolbar>
  <toolbar name="toolbar2">
    <toolitem name="pp" action="pp"/>
    <separator/>
    <toolitem name="mean" action="mean"/>
    <toolitem name="lm" action="lm"/>
    <toolitem name="threshold" action="threshold"/>
    <separator/>
    <toolitem name="multi" action="multi"/>
    <separator/>
    <toolitem name="create_mask" action="create_mask"/>
    <toolitem name="extract" action="extract"/>
  </toolbar>
</ui>)";
