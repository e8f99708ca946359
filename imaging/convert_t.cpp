#include "imaging/convert_t.h"

#include "dialogs/help.h"
#include "kvo_config.h"

void kvo3_convert_t() {
  Q_open_browser("%sutilities/?show=Statistics", KVO_SITE_URL);
}
