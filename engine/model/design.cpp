#include "engine/model/design.h"

#include <Eigen/QR>
#include <algorithm>
#include <cmath>

#include "engine/base/refusal.h"
#include "util/text.h"

namespace kvo::model {

namespace {

// A term that keeps less than this share of itself beside the terms before it is nothing but
// rounding errors, or would leave too few digits.
constexpr double least_own_share = 1e-8;
// Within these, estimates and variances are far from the limits of single precision.
constexpr double largest_value = 1e12, smallest_spread = 1e-12;

[[noreturn]] void refuse_term(const Term& term, const std::string& what) {
  throw Refusal("The term '" + term.name + "' " + what);
}

void check_terms(std::span<const Term> terms, std::size_t studies) {
  if (terms.size() > max_terms)
    refuse_term(terms[max_terms],
                "is one too many: a model has at most " + std::to_string(max_terms) + " terms.");
  for (std::size_t t = 0; t < terms.size(); ++t) {
    const auto same = [&](const Term& other) { return other.name == terms[t].name; };
    if (std::any_of(terms.begin(), terms.begin() + std::ptrdiff_t(t), same))
      refuse_term(terms[t], "is in the model twice.");
  }
  if (!terms.empty() && studies <= terms.size() + 1)
    refuse_term(terms.back(), "makes the model too large: with " +
                                  Q_counted(terms.size(), "term", "terms") + " it needs at least " +
                                  std::to_string(terms.size() + 2) +
                                  " studies that have all values, and there " +
                                  (studies == 1 ? "is " : "are ") + std::to_string(studies) + ".");
  for (const Term& term : terms) {
    const auto [least, most] = std::minmax_element(term.values.begin(), term.values.end());
    if (*least == *most) refuse_term(term, "has the same value in all the studies.");
    if (*least < -largest_value || *most > largest_value)
      refuse_term(term, "has values that are too large. Please give them in another unit.");
  }
}

/// Throws Refusal when what a term has beyond those before it, the diagonal of R, is too little.
void check_own_parts(std::span<const Term> terms, const Eigen::MatrixXd& X,
                     const Eigen::MatrixXd& R) {
  for (std::size_t t = 0; t < terms.size(); ++t) {
    const auto column = Eigen::Index(t);
    const double own = std::abs(R(column, column));
    if (own <= least_own_share * X.col(column).norm())
      refuse_term(terms[t], "says nothing that the terms before it do not say already.");
    if (own < smallest_spread)
      refuse_term(terms[t],
                  "has values that are too close together. Please give them in another unit.");
  }
}

}  // namespace

Design make_design(std::span<const Term> terms, std::size_t studies) {
  check_terms(terms, studies);
  const auto k = Eigen::Index(studies), t = Eigen::Index(terms.size()), p = t + 1;
  Design design;
  design.columns = design.basis = Eigen::MatrixXd::Ones(k, p);
  // What the columns are made of in the basis.
  Eigen::MatrixXd forward = Eigen::MatrixXd::Identity(p, p);
  if (t > 0) {
    auto X = design.columns.rightCols(t);
    for (Eigen::Index j = 0; j < t; ++j)
      X.col(j) = Eigen::Map<const Eigen::VectorXd>(terms[std::size_t(j)].values.data(), k);
    // X = 1 mean' + Q R. The columns of Q are given the length of 1's.
    const Eigen::RowVectorXd mean = X.colwise().mean();
    const double length = std::sqrt(double(studies));
    const Eigen::HouseholderQR<Eigen::MatrixXd> qr(X.rowwise() - mean);
    const Eigen::MatrixXd R = qr.matrixQR().topRows(t).triangularView<Eigen::Upper>();
    check_own_parts(terms, X, R);
    design.basis.rightCols(t) = qr.householderQ() * Eigen::MatrixXd::Identity(k, t) * length;
    forward.topRightCorner(1, t) = mean;
    forward.bottomRightCorner(t, t) = R / length;
  }
  design.back = forward.triangularView<Eigen::Upper>().solve(Eigen::MatrixXd::Identity(p, p));
  return design;
}

}  // namespace kvo::model
