#include "resources/images.h"

#include "resources/kvo.inc"
#include "resources/kvo_letters.inc"

// Inline pixel data are what the images are kept as; their successor, GResource, is of no use to
// one icon and one logo.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

GdkPixbuf* kvo_image(const guint8* inline_bytes) {
  return gdk_pixbuf_new_from_inline(-1, inline_bytes, FALSE, nullptr);
}
