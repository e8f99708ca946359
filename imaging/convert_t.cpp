#include "imaging/convert_t.h"

#include "dialogs/help.h"
#include "util/site_address.h"

void kvo3_convert_t() {
  Q_open_browser("%sutilities/?show=Statistics", kvo_site());
}
