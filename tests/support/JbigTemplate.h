// The model templates of ITU-T T.82 6.7 as plainly as they can be written, for the oracles.
#pragma once

namespace vox::test {

// A pixel of a template: how far to the right, how many lines up.
struct TemplatePlace {
  int dx, up;
};

// The ten pixels of a context, most significant bit first; kAtBit is the AT pixel.
inline constexpr TemplatePlace kAtDefaultPlace = {2, 1};
inline constexpr TemplatePlace kThreeLines[10] = {
    {-1, 2}, {0, 2}, {1, 2}, {-2, 1}, {-1, 1}, {0, 1}, {1, 1}, kAtDefaultPlace, {-2, 0}, {-1, 0}};
inline constexpr TemplatePlace kTwoLines[10] = {
    {-3, 1}, {-4, 0}, {-3, 0}, {-2, 1}, {-1, 1}, {0, 1}, {1, 1}, kAtDefaultPlace, {-2, 0}, {-1, 0}};
inline constexpr int kAtIndex = 7;

// TemplateContext returns the context of pixel x; pixel(x, lines_up) is 0 outside the image. tx is
// the AT offset, 0 for the default place.
template <typename Pixel>
int TemplateContext(int lines, int tx, int x, const Pixel& pixel) {
  int context = 0;
  for (int i = 0; i < 10; ++i) {
    TemplatePlace place = lines == 2 ? kTwoLines[i] : kThreeLines[i];
    if (i == kAtIndex && tx > 0) place = {-tx, 0};
    context = context * 2 + pixel(x + place.dx, place.up);
  }
  return context;
}

}  // namespace vox::test
