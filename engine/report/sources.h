#pragma once

// The published sources of the methods: how texts cite them, their full references, and both as
// BibTeX has them.

#include <string>

#include "engine/report/report_layer.h"

namespace kvo::report {

/// Of a book, or a part of one, `volume` and `pages` are "" and `where` is its place and publisher,
/// or what it is a part of.
struct Source {
  const char* citation;  ///< "Higgins and Thompson 2002"
  const char *authors, *title, *where, *volume, *pages;
};

/// "Hedges LV (1981). Title. Journal 6:107\u2013128."
std::string reference_of(const Source& source);
/// The source as an entry of a BibTeX file.
std::string bibtex_of(const Source& source);
/// Likewise of this program and its version.
std::string bibtex_of_program();

namespace sources {

inline constexpr Source hedges{
    "Hedges 1981",
    "Hedges LV",
    "Distribution theory for Glass's estimator of effect size and related estimators",
    "Journal of Educational Statistics",
    "6",
    "107\u2013128"};
inline constexpr Source winkler{"Winkler et al. 2014",
                                "Winkler AM, Ridgway GR, Webster MA, Smith SM, Nichols TE",
                                "Permutation inference for the general linear model",
                                "NeuroImage",
                                "92",
                                "381\u2013397"};
inline constexpr Source smith{
    "Smith and Nichols 2009",
    "Smith SM, Nichols TE",
    "Threshold-free cluster enhancement: addressing problems of smoothing, threshold dependence "
    "and localisation in cluster inference",
    "NeuroImage",
    "44",
    "83\u201398"};
inline constexpr Source benjamini{
    "Benjamini and Hochberg 1995",
    "Benjamini Y, Hochberg Y",
    "Controlling the false discovery rate: a practical and powerful approach to multiple testing",
    "Journal of the Royal Statistical Society: Series B",
    "57",
    "289\u2013300"};
inline constexpr Source bardeen{"Bardeen et al. 1986",
                                "Bardeen JM, Bond JR, Kaiser N, Szalay AS",
                                "The statistics of peaks of Gaussian random fields",
                                "The Astrophysical Journal",
                                "304",
                                "15\u201361"};
inline constexpr Source moller{"Møller et al. 1998",
                               "Møller J, Syversveen AR, Waagepetersen RP",
                               "Log Gaussian Cox processes",
                               "Scandinavian Journal of Statistics",
                               "25",
                               "451\u2013482"};
inline constexpr Source rue{"Rue et al. 2009",
                            "Rue H, Martino S, Chopin N",
                            "Approximate Bayesian inference for latent Gaussian models by using "
                            "integrated nested Laplace approximations",
                            "Journal of the Royal Statistical Society: Series B",
                            "71",
                            "319\u2013392"};
inline constexpr Source borenstein{"Borenstein et al. 2009",
                                   "Borenstein M, Hedges LV, Higgins JPT, Rothstein HR",
                                   "Introduction to Meta-Analysis",
                                   "Chichester: Wiley",
                                   "",
                                   ""};
inline constexpr Source dersimonian{"DerSimonian and Laird 1986",
                                    "DerSimonian R, Laird N",
                                    "Meta-analysis in clinical trials",
                                    "Controlled Clinical Trials",
                                    "7",
                                    "177\u2013188"};
inline constexpr Source higgins{"Higgins and Thompson 2002",
                                "Higgins JPT, Thompson SG",
                                "Quantifying heterogeneity in a meta-analysis",
                                "Statistics in Medicine",
                                "21",
                                "1539\u20131558"};
inline constexpr Source knapp{
    "Knapp and Hartung 2003",
    "Knapp G, Hartung J",
    "Improved tests for a random effects meta-regression with a single covariate",
    "Statistics in Medicine",
    "22",
    "2693\u20132710"};
inline constexpr Source lancaster{
    "Lancaster et al. 2007",
    "Lancaster JL, Tordesillas-Gutiérrez D, Martinez M, et al.",
    "Bias between MNI and Talairach coordinates analyzed using the ICBM-152 brain template",
    "Human Brain Mapping",
    "28",
    "1194\u20131205"};
inline constexpr Source muller{"Müller et al. 2018",
                               "Müller VI, Cieslik EC, Laird AR, et al.",
                               "Ten simple rules for neuroimaging meta-analysis",
                               "Neuroscience and Biobehavioral Reviews",
                               "84",
                               "151\u2013161"};
inline constexpr Source nichols{"Nichols et al. 2005",
                                "Nichols T, Brett M, Andersson J, Wager T, Poline JB",
                                "Valid conjunction inference with the minimum statistic",
                                "NeuroImage",
                                "25",
                                "653\u2013660"};
inline constexpr Source thompson{
    "Thompson and Higgins 2002",
    "Thompson SG, Higgins JPT",
    "How should meta-regression analyses be undertaken and interpreted?",
    "Statistics in Medicine",
    "21",
    "1559\u20131573"};
inline constexpr Source prediction{"Higgins et al. 2009",
                                   "Higgins JPT, Thompson SG, Spiegelhalter DJ",
                                   "A re-evaluation of random-effects meta-analysis",
                                   "Journal of the Royal Statistical Society: Series A",
                                   "172",
                                   "137\u2013159"};
inline constexpr Source pustejovsky{
    "Pustejovsky and Rodgers 2019",
    "Pustejovsky JE, Rodgers MA",
    "Testing for funnel plot asymmetry of standardized mean differences",
    "Research Synthesis Methods",
    "10",
    "57\u201371"};
inline constexpr Source raudenbush{
    "Raudenbush 2009",
    "Raudenbush SW",
    "Analyzing effect sizes: random-effects models",
    "In: Cooper H, Hedges LV, Valentine JC (eds) The Handbook of Research Synthesis and "
    "Meta-Analysis, 2nd ed. New York: Russell Sage Foundation, 295\u2013315",
    "",
    ""};
inline constexpr Source reml{
    "Viechtbauer 2005",
    "Viechtbauer W",
    "Bias and efficiency of meta-analytic variance estimators in the random-effects model",
    "Journal of Educational and Behavioral Statistics",
    "30",
    "261\u2013293"};
inline constexpr Source profile{
    "Viechtbauer 2007",
    "Viechtbauer W",
    "Confidence intervals for the amount of heterogeneity in meta-analysis",
    "Statistics in Medicine",
    "26",
    "37\u201352"};

}  // namespace sources

}  // namespace kvo::report
