#include "companions/kvo_core/meta_regression.h"

#include <Eigen/Cholesky>
#include <Eigen/QR>
#include <algorithm>
#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/normal.hpp>
#include <cmath>

#include "companions/common/error.h"

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
    refuse_term(terms.back(), "makes the model too large: with " + std::to_string(terms.size()) +
                                  (terms.size() == 1 ? " term" : " terms") + " it needs at least " +
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

using Square =
    Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, 0, max_terms + 1, max_terms + 1>;
using Column = Eigen::Matrix<double, Eigen::Dynamic, 1, 0, max_terms + 1, 1>;

/// Single values of the studies, and what is added up of them. The sums grow study by study: the
/// order in which a library's matrix product takes them depends on the processor's caches.
struct Values {
  const Design& design;
  std::span<const double> effects, variances;

  [[nodiscard]] Eigen::Map<const Column> row(std::size_t s) const {
    const std::size_t p = design.coefficients;
    return {design.basis.data() + s * p, Eigen::Index(p)};
  }
  /// Z' diag(w(s)) Z for the basis Z of the design.
  template <typename Weight>
  [[nodiscard]] Square squares(const Weight& w) const {
    const auto p = Eigen::Index(design.coefficients);
    Square sum = Square::Zero(p, p);
    for (std::size_t s = 0; s < effects.size(); ++s) sum += w(s) * row(s) * row(s).transpose();
    return sum;
  }
  /// Z' diag(w(s)) y for the effects y.
  template <typename Weight>
  [[nodiscard]] Column products(const Weight& w) const {
    Column sum = Column::Zero(Eigen::Index(design.coefficients));
    for (std::size_t s = 0; s < effects.size(); ++s) sum += w(s) * effects[s] * row(s);
    return sum;
  }
};

void find_heterogeneity(const Values& values, ModelFit& fit) {
  const auto weight = [&](std::size_t s) { return 1 / values.variances[s]; };
  const Eigen::LDLT<Square> A(values.squares(weight));
  const Column fitted = A.solve(values.products(weight));
  double trace =
      -A.solve(values.squares([&](std::size_t s) { return weight(s) * weight(s); })).trace();
  for (std::size_t s = 0; s < values.effects.size(); ++s) {
    const double residual = values.effects[s] - values.row(s).dot(fitted);
    fit.QE += weight(s) * residual * residual;
    trace += weight(s);
  }
  const double excess = fit.QE - fit.QE_df;
  if (excess <= 0 || trace <= 0) return;
  fit.tau2 = excess / trace;
  fit.I2 = 100 * excess / fit.QE;
  fit.H2 = fit.QE / fit.QE_df;
}

double chi_squared_p(double Q, double df) {
  if (df < 1) return 1;
  return cdf(complement(boost::math::chi_squared(df), std::max(Q, 0.0)));
}

}  // namespace

Design make_design(std::span<const Term> terms, std::size_t studies) {
  check_terms(terms, studies);
  const auto k = Eigen::Index(studies), t = Eigen::Index(terms.size()), p = t + 1;
  Eigen::MatrixXd X(k, t);
  for (Eigen::Index j = 0; j < t; ++j)
    X.col(j) = Eigen::Map<const Eigen::VectorXd>(terms[std::size_t(j)].values.data(), k);

  // X = 1 mean' + Q R. The columns of the basis, 1 and Q, have the length of 1.
  const Eigen::RowVectorXd mean = X.colwise().mean();
  Eigen::MatrixXd basis = Eigen::MatrixXd::Ones(k, p);
  Eigen::MatrixXd forward = Eigen::MatrixXd::Identity(p, p);
  if (t > 0) {
    const double length = std::sqrt(double(studies));
    const Eigen::HouseholderQR<Eigen::MatrixXd> qr(X.rowwise() - mean);
    const Eigen::MatrixXd R = qr.matrixQR().topRows(t).triangularView<Eigen::Upper>();
    check_own_parts(terms, X, R);
    basis.rightCols(t) = qr.householderQ() * Eigen::MatrixXd::Identity(k, t) * length;
    forward.topRightCorner(1, t) = mean;
    forward.bottomRightCorner(t, t) = R / length;
  }

  Design design{studies, std::size_t(p), {}, {}, {}};
  design.back = forward.triangularView<Eigen::Upper>().solve(Eigen::MatrixXd::Identity(p, p));
  for (Eigen::Index s = 0; s < k; ++s)
    for (Eigen::Index i = 0; i < p; ++i) {
      design.basis.push_back(basis(s, i));
      for (Eigen::Index j = 0; j <= i; ++j) design.products.push_back(basis(s, i) * basis(s, j));
    }
  return design;
}

ModelFit fit_model(const Design& design, std::span<const double> effects,
                   std::span<const double> variances) {
  const Values values{design, effects, variances};
  const auto k = Eigen::Index(design.studies), p = Eigen::Index(design.coefficients);
  ModelFit fit;
  fit.QE_df = double(k - p);
  fit.QM_df = double(p - 1);
  if (k > p) find_heterogeneity(values, fit);
  const auto weight = [&](std::size_t s) { return 1 / (variances[s] + fit.tau2); };
  const Square spread = values.squares(weight).ldlt().solve(Square::Identity(p, p));
  const Column in_basis = spread * values.products(weight);
  const Square back = design.back;
  const Column estimates = back * in_basis;
  fit.covariance = back * spread * back.transpose();
  for (Eigen::Index j = 0; j < p; ++j) {
    const double se = std::sqrt(fit.covariance(j, j)), z = estimates(j) / se;
    fit.coefficients.push_back(
        {estimates(j), se, z, 2 * cdf(complement(boost::math::normal(), std::abs(z)))});
  }
  // The basis without its first column spans the centred terms.
  const Column slopes = in_basis.tail(p - 1);
  const Square slopes_spread = spread.bottomRightCorner(p - 1, p - 1);
  if (p > 1) fit.QM = slopes.dot(slopes_spread.ldlt().solve(slopes));
  fit.QE_p = chi_squared_p(fit.QE, fit.QE_df);
  fit.QM_p = chi_squared_p(fit.QM, fit.QM_df);
  return fit;
}
