#include "engine/model/design.h"

#include <algorithm>
#include <cmath>

#include "engine/base/refusal.h"
#include "util/text.h"

namespace kvo::model {

namespace {

// A term with less than this share of itself left beside the terms before it is nothing but
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

/// Throws Refusal when a term adds too little to those before it.
void check_own_part(const Term& term, double own, double whole) {
  if (own <= least_own_share * whole)
    refuse_term(term, "says nothing that the terms before it do not say already.");
  if (own < smallest_spread)
    refuse_term(term, "has values that are too close together. Please give them in another unit.");
}

}  // namespace

// Gram-Schmidt, with each column orthogonalised twice, which makes them orthogonal to machine
// precision (Giraud, Langou, Rozložník and van den Eshof 2005, Numerische Mathematik 101:87).
Design make_design(std::span<const Term> terms, std::size_t studies) {
  check_terms(terms, studies);
  const auto k = Eigen::Index(studies), p = Eigen::Index(terms.size()) + 1;
  Design design;
  design.columns = design.basis = Eigen::MatrixXd::Ones(k, p);
  design.back = Eigen::MatrixXd::Identity(p, p);
  for (Eigen::Index t = 1; t < p; ++t) {
    const Term& term = terms[std::size_t(t - 1)];
    auto column = design.basis.col(t);
    design.columns.col(t) = column = Eigen::Map<const Eigen::VectorXd>(term.values.data(), k);
    // Subtracts the projections onto earlier columns, and keeps track of what that does to the
    // terms.
    for (int round = 0; round < 2; ++round)
      for (Eigen::Index j = 0; j < t; ++j) {
        // All columns of the basis are as long as the first.
        const double part = design.basis.col(j).dot(column) / double(studies);
        column -= part * design.basis.col(j);
        design.back.col(t) -= part * design.back.col(j);
      }
    const double own = column.norm();
    check_own_part(term, own, design.columns.col(t).norm());
    const double scale = std::sqrt(double(studies)) / own;
    column *= scale;
    design.back.col(t) *= scale;
  }
  return design;
}

}  // namespace kvo::model
