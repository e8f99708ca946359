# Compares what the folders of the current folder hold with metafor's. Ends with status 1 when a value
# differs. With the argument "sets" writes data sets of metafor to the current folder instead: effects,
# variances and terms.
suppressPackageStartupMessages(library(metafor))

if ("sets" %in% commandArgs(TRUE)) {
  means <- function(measure, data)
    escalc(measure, m1i = m1i, sd1i = sd1i, n1i = n1i, m2i = m2i, sd2i = sd2i, n2i = n2i, data = data)
  sets <- list(
    bcg = list(escalc("RR", ai = tpos, bi = tneg, ci = cpos, di = cneg, data = dat.bcg), c("ablat", "year")),
    raudenbush = list(dat.raudenbush1985, "weeks"),
    normand = list(means("SMD", dat.normand1999), "n1i"),
    molloy = list(escalc("ZCOR", ri = ri, ni = ni, data = dat.molloy2014), c("quality", "meanage")),
    hackshaw = list(dat.hackshaw1998, "year"),
    konstantopoulos = list(dat.konstantopoulos2011, "year"),
    bangertdrowns = list(dat.bangertdrowns2004, c("length", "wic", "feedback", "meta")),
    curtis = list(means("ROM", dat.curtis1998), c("time", "co2.elev")),
    gibson = list(means("SMD", dat.gibson2002), c("year", "type")))
  for (name in names(sets)) {
    rows <- as.data.frame(sets[[name]][[1]])[, c("yi", "vi", sets[[name]][[2]])]
    rows <- rows[complete.cases(rows), ]
    write.table(format(data.matrix(rows), digits = 17), paste0(name, ".tsv"), sep = "\t", quote = FALSE, row.names = FALSE)
  }
  quit()
}

root <- getwd()
failed <- FALSE
compare <- function(what, ours, reference, relative = 1e-8, rounding = 1e-9) {
  ours <- as.numeric(ours)
  reference <- as.numeric(reference)
  excess <- abs(ours - reference) / (relative * abs(reference) + rounding)
  if (length(ours) == length(reference) && length(ours) > 0 && !anyNA(excess) && all(excess <= 1)) return()
  worst <- head(which(is.na(excess) | excess > 1), 3)
  cat(getwd(), what, ": ours", format(ours[worst], digits = 12), "reference", format(reference[worst], digits = 12), "\n")
  failed <<- TRUE
}

dersimonian_laird <- function(g, var, ...) suppressWarnings(rma(yi = g, vi = var, method = "DL", ...))

# Maps of every study, of means and of linear models. Single-precision files hold seven digits; what is
# 0 must be 0 but for rounding.

setwd(file.path(root, "peaks"))
fwhm <- 8
table <- read.csv("kvo_table.txt")
voxels <- read.delim("voxels.tsv", check.names = FALSE)
centres <- as.matrix(voxels[, c("x", "y", "z")])
compare_map <- function(map, at, reference, rounding = 1e-9) compare(map, voxels[[map]][at], reference, 1e-6, rounding)

# From MNI to Talairach space, Lancaster et al. 2007, all programs pooled.
lancaster <- rbind(c(0.9357, 0.0029, -0.0072, -1.0423), c(-0.0065, 0.9396, -0.0726, -1.3940),
                   c(0.0103, 0.0752, 0.8967, 3.6475), c(0, 0, 0, 1))

# A row of x, y, z and height for each peak, in MNI space.
read_peaks <- function(study) {
  lines <- readLines(paste0(study, ".peaks.txt"))
  cells <- strsplit(trimws(gsub(",", " ", sub("#.*", "", lines))), "[ \t]+")
  peaks <- do.call(rbind, cells[lengths(cells) == 4])
  if (is.null(peaks)) return(matrix("", 0, 4))
  if (any(grepl("space: Talairach", lines)))
    peaks[, 1:3] <- format(t(solve(lancaster, rbind(apply(t(peaks[, 1:3, drop = FALSE]), 1:2, as.numeric), 1)))[, 1:3], digits = 17)
  peaks
}

for (s in which(file.exists(paste0(table$study, ".peaks.txt")))) {
  row <- table[s, ]
  two <- !is.na(row$n2)
  df <- if (two) row$n1 + row$n2 - 2 else row$n1 - 1
  peaks <- read_peaks(row$study)
  p <- if (is.na(row$threshold_p)) 0.001 else row$threshold_p
  unknown <- if (is.na(row$threshold_t)) qt(p, df, lower.tail = FALSE) else row$threshold_t
  t <- as.numeric(ifelse(peaks[, 4] == "p", unknown, ifelse(peaks[, 4] == "n", -unknown, peaks[, 4])))
  j <- exp(lgamma(df / 2) - lgamma((df - 1) / 2)) / sqrt(df / 2)
  g <- j * (if (two) t * sqrt(1 / row$n1 + 1 / row$n2) else t / sqrt(row$n1))
  if (two && length(t) > 0)
    compare("g of metafor", g, escalc("SMD", ti = t, n1i = rep(row$n1, length(t)), n2i = rep(row$n2, length(t)))$yi)
  sigma <- fwhm / (2 * sqrt(2 * log(2)))
  numerator <- denominator <- numeric(nrow(centres))
  for (p in seq_along(t)) {
    distance <- sqrt(rowSums(sweep(centres, 2, as.numeric(peaks[p, 1:3]))^2))
    kernel <- ifelse(distance <= 3 * sigma, exp(-distance^2 / (2 * sigma^2)), 0)
    numerator <- numerator + kernel * (kernel * g[p])
    denominator <- denominator + kernel
  }
  effects <- ifelse(denominator > 0, numerator / denominator, 0)
  compare_map(paste0("pp/", row$study, "_g"), TRUE, effects)
  compare_map(paste0("pp/", row$study, "_var"), TRUE,
              if (two) 1 / row$n1 + 1 / row$n2 + effects^2 / (2 * (row$n1 + row$n2)) else 1 / row$n1 + effects^2 / (2 * row$n1))
}

setwd(file.path(root, "maps"))
voxels <- read.delim("voxels.tsv", check.names = FALSE)
adults <- !is.na(table$adults) & table$adults == 1
models <- list(All = character(), Adults = character(), One = "micrograms", Two = c("age", "micrograms"),
               Four = c("age", "micrograms", "tesla", "group"))
for (name in names(models)) {
  terms <- models[[name]]
  used <- complete.cases(table[, terms, drop = FALSE]) & (!name %in% c("Adults", "Two") | adults)
  # Numbers of voxels that have no factor in common with those that are computed together.
  some <- seq(2, nrow(voxels), by = if (length(terms) == 0) 3 else 9)
  studies <- table$study[used]
  mods <- if (length(terms) > 0) as.matrix(table[used, terms, drop = FALSE]) else ~ 1
  fits <- lapply(some, function(v)
    dersimonian_laird(unlist(voxels[v, paste0("pp/", studies, "_g")]), unlist(voxels[v, paste0("pp/", studies, "_var")]), mods = mods))
  zeros <- strrep("0", length(terms))
  of_intercept <- paste0(name, if (length(terms) > 0) paste0("_", zeros))
  for (j in 0:length(terms)) {
    digits <- zeros
    substr(digits, j, j) <- "1"
    map <- if (j == 0) of_intercept else paste0(name, "_", digits)
    # The terms differ in scale by many powers of ten, and so do the coefficients.
    for (kind in c("g", "var", "z", "ci_low", "ci_high")) {
      reference <- sapply(fits, function(fit) list(g = fit$beta[j + 1], var = fit$se[j + 1]^2, z = fit$zval[j + 1],
                                                   ci_low = fit$ci.lb[j + 1], ci_high = fit$ci.ub[j + 1])[[kind]])
      # A limit is the sum of numbers that may be far larger.
      rounding <- if (startsWith(kind, "ci")) 1e-6 else 1e-9
      compare_map(paste0(map, "_", kind), some, reference, rounding * (if (length(terms) > 0) max(abs(reference)) else 1))
    }
  }
  compare_map(paste0(of_intercept, "_tau2"), some, sapply(fits, function(fit) fit$tau2))
  compare_map(paste0(of_intercept, "_I2"), some, sapply(fits, function(fit) fit$I2))
  compare_map(paste0(of_intercept, "_Q"), some, sapply(fits, function(fit) fit$QE))
}

# The lines "# key = value" of a file.
values_of <- function(file) {
  lines <- grep("^# ", readLines(file), value = TRUE)
  setNames(as.list(sub("^[^=]*= ", "", lines)), sub("^# ([^ ]+) = .*", "\\1", lines))
}

compare_prediction <- function(values, fit) {
  half <- qt(0.975, fit$k - 2) * sqrt(fit$tau2 + fit$se^2)
  compare("prediction", c(values$prediction_low_95, values$prediction_high_95), c(fit$beta) + c(-half, half))
  # metafor's own interval has normal quantiles; its standard error is the same.
  limits <- predict(fit)
  compare("prediction error", half / qt(0.975, fit$k - 2), (limits$pi.ub - limits$pi.lb) / 2 / qnorm(0.975))
}

# The best that metafor can do: its own limits of convergence are wider than ours.
fit_of <- function(data, mods, method)
  rma(yi, vi, mods = mods, data = data, method = method, test = if (method == "REML") "knha" else "z",
      control = list(threshold = 1e-13, maxiter = 10000))
coefficients_of <- function(fit) rbind(c(fit$beta), fit$se, fit$zval, fit$pval, fit$ci.lb, fit$ci.ub)
# tau2, I2 and H2 of the lower and the upper bound.
profile_of <- function(fit) {
  bounds <- confint(fit, control = list(tol = 1e-14, maxiter = 10000, tau2.max = 1e5))$random
  c(bounds[c("tau^2", "I^2(%)", "H^2"), c("ci.lb", "ci.ub")])
}
compare_heterogeneity <- function(name, values, fit) {
  compare(paste(name, "heterogeneity"), values[c("Q", "Q_df", "Q_p", "tau2", "I2", "H2", "studies")],
          c(fit$QE, fit$k - fit$p, fit$QEp, fit$tau2, fit$I2, fit$H2, fit$k))
  if (fit$QE < qchisq(0.025, fit$k - fit$p)) {
    if (!startsWith(values$intervals, "none")) failed <<- TRUE
  } else compare(paste(name, "profile"), values[outer(c("tau2", "I2", "H2"), c("_low_95", "_high_95"), paste0)], profile_of(fit))
}
# What goes with a mean: effects are yi, vi and size.
compare_mean <- function(name, values, fit, effects) {
  if (fit$method == "DL") compare_prediction(values, fit)
  else {
    limits <- predict(fit)
    compare(paste(name, "prediction"), c(values$prediction_low_95, values$prediction_high_95), c(limits$pi.lb, limits$pi.ub))
  }
  test <- fit_of(effects, ~ size, fit$method)
  keys <- c("slope", "standard_error", if (fit$method == "DL") "z" else "t", "p", "low_95", "high_95", "intercept")
  compare(paste(name, "small studies"), values[paste0("small_study_", keys)], c(coefficients_of(test)[, 2], test$beta[1]))
}

setwd(file.path(root, "pools"))
effects <- read.delim("effects.tsv")
compare("leave1out", unlist(read.delim("pools.tsv")), t(sapply(seq_along(effects$g), function(s) {
  fit <- fit_of(data.frame(yi = effects$g, vi = effects$v)[-s, ], ~ 1, "REML")
  c(fit$beta, fit$se, fit$pval, fit$QE, fit$tau2)
})))

for (folder in Sys.glob(file.path(root, "globals *"))) {
  setwd(folder)
  table <- read.delim("kvo_table.txt")
  two <- "n2" %in% names(table)
  effects <- if (two)
    escalc("SMD", m1i = mean1, sd1i = sd1, n1i = n1, m2i = mean2, sd2i = sd2, n2i = n2, data = table)
  else escalc("SMN", mi = mean1, sdi = sd1, ni = n1, data = table)
  effects$size <- if (two) sqrt(1 / table$n1 + 1 / table$n2) else 1 / sqrt(table$n1)
  models <- list(None = ~ 1, One = ~ year, Two = ~ patients + age, Four = ~ year + dose + patients + age,
                 NoneDL = ~ 1, TwoDL = ~ patients + age, FourDL = ~ year + dose + patients + age)
  for (name in names(models)) {
    used <- effects[complete.cases(effects[, c("yi", "vi", all.vars(models[[name]]))]), ]
    if (name %in% c("Two", "TwoDL")) used <- used[used$kept == 1, ]
    method <- if (endsWith(name, "DL")) "DL" else "REML"
    fit <- fit_of(used, models[[name]], method)
    file <- paste0(name, "_globals.txt")
    compare(paste(name, "coefficients"), unlist(read.delim(file, comment.char = "#")[, -1]), t(coefficients_of(fit)))
    values <- values_of(file)
    compare_heterogeneity(name, values, fit)
    if (models[[name]] != ~ 1)
      compare(paste(name, "terms"), values[if (method == "DL") c("QM", "QM_p", "QM_df") else c("F", "F_p", "F_df")],
              c(fit$QM, fit$QMp, fit$m))
    else compare_mean(name, values, fit, used)
    if (!is.null(values$R2)) compare(paste(name, "R2"), values$R2, fit$R2)
    rows <- read.csv(paste0(name, "_globals.csv"))
    if (!identical(rows$study, used$study)) failed <- TRUE
    weights <- 1 / (used$vi + fit$tau2)
    compare(paste(name, "effects"), c(rows$g, rows$variance, rows$weight),
            c(used$yi, used$vi, 100 * weights / sum(weights)))
  }
}

setwd(file.path(root, "sets"))
for (file in list.files(pattern = "tsv$")) {
  data <- read.delim(file)
  for (method in c("REML", "DL")) for (kind in c("terms", "mean")) {
    mods <- if (kind == "terms") as.matrix(data[, -(1:2), drop = FALSE]) else ~ 1
    fit <- fit_of(data, mods, method)
    limits <- predict(fit)
    reference <- c(coefficients_of(fit), fit$tau2, fit$I2, fit$H2, fit$QE, fit$QEp, profile_of(fit),
                   if (kind == "terms") c(fit$QM, fit$QMp),
                   if (kind == "mean" && method == "REML") c(limits$pi.lb, limits$pi.ub))
    compare(paste(file, method, kind), scan(paste0(file, ".", method, ".", kind), quiet = TRUE), reference)
  }
}

setwd(file.path(root, "extract"))
table <- read.delim("kvo_table.txt")
for (mask in c("Left_amygdala", "26_-12_4", "gray_matter")) {
  file <- paste0("extract_", mask, ".txt")
  ours <- read.delim(file, comment.char = "#")
  values <- values_of(file)
  two <- !is.na(table$n2)
  effects <- data.frame(yi = ours$g, vi = ours$variance,
                        size = ifelse(two, sqrt(1 / table$n1 + 1 / ifelse(two, table$n2, 1)), 1 / sqrt(table$n1)))
  fit <- fit_of(effects, ~ 1, "REML")
  # The file's effects have ten digits.
  compare("pool", values[c("g", "standard_error", "t", "p", "low_95", "high_95")], coefficients_of(fit))
  weights <- 1 / (effects$vi + fit$tau2)
  compare("weights", ours$weight, 100 * weights / sum(weights))
  compare("standard errors", ours$standard_error^2, ours$variance)
  compare_heterogeneity(mask, values, fit)
  compare_mean(mask, values, fit, effects)
}

setwd(file.path(root, "names"))
table <- read.table("kvo_table.txt", header = TRUE, quote = "", comment.char = "")
if (!identical(read.delim("extract_<b>&.txt", comment.char = "#")$study, table$study)) failed <- TRUE
if (failed) quit(status = 1)
