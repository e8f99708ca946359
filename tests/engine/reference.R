# Recomputes the maps of the current folder from its table and peaks files and compares them with
# those in voxels.tsv. Argument: the FWHM. Ends with status 1 when a value differs by more than 1e-6.
suppressPackageStartupMessages(library(metafor))

fwhm <- as.numeric(commandArgs(TRUE)[1])
table <- read.csv("kvo_table.txt")
voxels <- read.delim("voxels.tsv", check.names = FALSE)
centres <- as.matrix(voxels[, c("x", "y", "z")])
failed <- FALSE

# Single-precision files hold seven digits; what is 0 must be 0 but for rounding.
compare <- function(what, ours, reference, rounding = 1e-9) {
  excess <- abs(ours - reference) / (1e-6 * abs(reference) + rounding)
  cat(sprintf("%-22s %d voxels, %d not 0, largest difference %.3g of what is allowed\n",
              what, length(ours), sum(reference != 0), max(excess)))
  if (!all(excess <= 1)) failed <<- TRUE
}

# From MNI to Talairach space, Lancaster et al. 2007, all programs pooled.
lancaster <- rbind(c(0.9357, 0.0029, -0.0072, -1.0423), c(-0.0065, 0.9396, -0.0726, -1.3940),
                   c(0.0103, 0.0752, 0.8967, 3.6475), c(0, 0, 0, 1))

read_peaks <- function(study) {
  lines <- readLines(paste0(study, ".peaks.txt"))
  talairach <- any(grepl("space: Talairach", lines))
  lines <- gsub(",", " ", trimws(sub("#.*", "", lines)))
  cells <- strsplit(lines[lines != ""], "[ \t]+")
  peaks <- data.frame(x = numeric(), y = numeric(), z = numeric(), height = character())
  for (cell in cells)
    peaks[nrow(peaks) + 1, ] <- list(as.numeric(cell[1]), as.numeric(cell[2]), as.numeric(cell[3]), cell[4])
  if (talairach)
    peaks[, 1:3] <- t(solve(lancaster, rbind(t(as.matrix(peaks[, 1:3])), 1)))[, 1:3]
  peaks
}

study_effects <- function(row) {
  two <- !is.na(row$n2)
  df <- if (two) row$n1 + row$n2 - 2 else row$n1 - 1
  peaks <- read_peaks(row$study)
  unknown <- if (is.na(row$threshold_t)) qt(0.001, df, lower.tail = FALSE) else row$threshold_t
  t <- ifelse(peaks$height == "p", unknown,
              ifelse(peaks$height == "n", -unknown, suppressWarnings(as.numeric(peaks$height))))
  d <- if (two) t * sqrt(1 / row$n1 + 1 / row$n2) else t / sqrt(row$n1)
  j <- exp(lgamma(df / 2) - lgamma((df - 1) / 2)) / sqrt(df / 2)
  g <- d * j
  if (two && nrow(peaks) > 0)
    compare(paste(row$study, "g of metafor"), g,
            as.numeric(escalc("SMD", ti = t, n1i = rep(row$n1, length(t)), n2i = rep(row$n2, length(t)))$yi))
  sigma <- fwhm / (2 * sqrt(2 * log(2)))
  numerator <- denominator <- numeric(nrow(centres))
  for (p in seq_len(nrow(peaks))) {
    distance <- sqrt(rowSums(sweep(centres, 2, as.numeric(peaks[p, 1:3]))^2))
    kernel <- ifelse(distance <= 3 * sigma, exp(-distance^2 / (2 * sigma^2)), 0)
    numerator <- numerator + kernel * (kernel * g[p])
    denominator <- denominator + kernel
  }
  effects <- ifelse(denominator > 0, numerator / denominator, 0)
  variances <- if (two) 1 / row$n1 + 1 / row$n2 + effects^2 / (2 * (row$n1 + row$n2))
               else 1 / row$n1 + effects^2 / (2 * row$n1)
  list(g = effects, var = variances)
}

for (s in seq_len(nrow(table))) {
  row <- as.list(table[s, ])
  if (!file.exists(paste0(row$study, ".peaks.txt"))) next  # an image, whose pooling alone is checked
  expected <- study_effects(row)
  compare(paste(row$study, "g"), voxels[[paste0("pp/", row$study, "_g")]], expected$g)
  compare(paste(row$study, "var"), voxels[[paste0("pp/", row$study, "_var")]], expected$var)
}

# Numbers of voxels that have no factor in common with those that are computed together.
some <- voxels[seq(1, nrow(voxels), by = 3), ]
analyses <- list(All = table$study, Adults = table$study[!is.na(table$adults) & table$adults == 1])
for (name in names(analyses)) {
  g <- sapply(analyses[[name]], function(study) some[[paste0("pp/", study, "_g")]])
  var <- sapply(analyses[[name]], function(study) some[[paste0("pp/", study, "_var")]])
  fits <- t(sapply(seq_len(nrow(g)), function(v) {
    fit <- suppressWarnings(rma(yi = g[v, ], vi = var[v, ], method = "DL"))
    c(g = as.numeric(fit$beta), var = fit$se^2, z = fit$zval, tau2 = fit$tau2, I2 = fit$I2, Q = fit$QE)
  }))
  for (map in colnames(fits))
    compare(paste(name, map), some[[paste0(name, "_", map)]], fits[, map])
}

some <- voxels[seq(2, nrow(voxels), by = 9), ]
models <- list(One = c("micrograms"), Two = c("age", "micrograms"), Four = c("age", "micrograms", "tesla", "group"))
for (name in names(models)) {
  terms <- models[[name]]
  rows <- complete.cases(table[, terms]) & (name != "Two" | (!is.na(table$adults) & table$adults == 1))
  studies <- table[rows, ]
  mods <- as.matrix(studies[, terms, drop = FALSE])
  g <- sapply(studies$study, function(study) some[[paste0("pp/", study, "_g")]])
  var <- sapply(studies$study, function(study) some[[paste0("pp/", study, "_var")]])
  fits <- lapply(seq_len(nrow(g)), function(v)
    suppressWarnings(rma(yi = g[v, ], vi = var[v, ], mods = mods, method = "DL")))
  # The terms differ in scale by many powers of ten, and so do the coefficients.
  compare_map <- function(map, reference)
    compare(paste0(name, map), some[[paste0(name, map)]], reference, 1e-9 * max(abs(reference)))
  zeros <- strrep("0", length(terms))
  for (j in 0:length(terms)) {
    digits <- zeros
    substr(digits, j, j) <- "1"
    compare_map(paste0("_", digits, "_g"), sapply(fits, function(fit) fit$beta[j + 1]))
    compare_map(paste0("_", digits, "_var"), sapply(fits, function(fit) fit$se[j + 1]^2))
    compare_map(paste0("_", digits, "_z"), sapply(fits, function(fit) fit$zval[j + 1]))
  }
  compare_map(paste0("_", zeros, "_tau2"), sapply(fits, function(fit) fit$tau2))
  compare_map(paste0("_", zeros, "_I2"), sapply(fits, function(fit) fit$I2))
  compare_map(paste0("_", zeros, "_Q"), sapply(fits, function(fit) fit$QE))
}
if (failed) quit(status = 1)
