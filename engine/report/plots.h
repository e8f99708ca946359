#pragma once

// Plots of the studies of a meta-analysis.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "engine/model/interval.h"
#include "engine/report/picture.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

struct ForestRow {
  std::string study;
  std::size_t n = 0;  ///< participants; 0 when unknown
  double g;
  Interval interval;  ///< 95 %
  double weight;      ///< share in the pooled estimate, in %
  /// Of a study that has no estimate: what is known instead, written in the place of one, and where
  /// on the axis a hollow mark stands for it, if anywhere.
  std::string known = {};
  std::optional<double> mark = {};
};

struct ForestPlot {
  std::string title;
  std::vector<ForestRow> rows;
  /// The pooled estimate, when there is one, and its 95 % interval.
  std::optional<double> pooled;
  Interval pooled_interval{};
  std::optional<Interval> prediction;  ///< the 95 % prediction interval of a further study
  std::string heterogeneity;           ///< such as "Q = 12.1, df = 9, p = 0.21; I² = 25.6 %"
  std::string axis = "Hedges' g";
};

/// A forest plot: a line for each study with its name, number of participants, estimate with its
/// interval and weight, the area of its square as its weight, and the pooled estimate as a diamond.
/// A study without an estimate has words instead, and no weight.
/// Many studies take several pictures, each with the axis; the pooled estimate is on the last.
/// Without rows there is no picture.
std::vector<Picture> forest_plot(const ForestPlot& plot);

struct FunnelPoint {
  std::string study;
  double g, standard_error;
};

struct FunnelPlot {
  std::string title;
  std::vector<FunnelPoint> points;
  double pooled = 0;
  std::string note;  ///< a line below the plot, such as the result of a test
  std::string axis = "Hedges' g";
};

/// A funnel plot: estimates against their standard errors, which grow downwards, with the pooled
/// estimate and the region pooled ± 1.96 standard errors (Sterne and Egger 2001, Journal of
/// Clinical Epidemiology 54:1046).
Picture funnel_plot(const FunnelPlot& plot);

struct DensityPoint {
  double x, density;  ///< the highest density is 1
};

struct DensityPlot {
  std::vector<DensityPoint> points;  ///< by rising x, two at least
  double estimate = 0;
  Interval interval{};  ///< 95 %
  std::string axis = "Hedges' g";
};

/// A density as a curve above its axis, with an estimate and its interval as lines, and as a dashed
/// curve the normal density of that estimate and interval.
Picture density_plot(const DensityPlot& plot);

}  // namespace kvo::report
