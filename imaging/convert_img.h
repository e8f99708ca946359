#pragma once

// The wizard that prepares an image from other software for the suite.

/// Handler of the action "convert_img": lets the user choose an image and repeats its questions and
/// conversions until the image declares t statistics in a known space, the user cancels or a
/// conversion fails. An image that cannot be read is a fatal error.
void kvo3_convert_img();

/// Asks for the degrees of freedom of a t statistic; 0 when the user cancels.
float kvo3_convert_img_df();
