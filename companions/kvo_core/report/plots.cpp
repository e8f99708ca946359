#include "companions/kvo_core/report/plots.h"

#include "companions/kvo_core/report/canvas.h"

std::vector<Picture> forest_plot(const ForestPlot& plot) {
  if (plot.rows.empty()) return {};
  return {Canvas(720, 400, {1, 1, 1}).picture("Forest plot")};
}

Picture funnel_plot(const FunnelPlot&) {
  return Canvas(720, 400, {1, 1, 1}).picture("Funnel plot");
}
