# Compares the pools and models in the folders of the current folder with metafor's. What a folder
# holds is the first word of its name. Ends with status 1 when a value differs.
suppressPackageStartupMessages(library(metafor))

folders <- list.files(getwd(), full.names = TRUE)
folders_of <- function(what) {
  found <- folders[sub(" .*", "", basename(folders)) == what]
  if (length(found) == 0) stop("no folder of ", what)
  found
}
failed <- FALSE
compare <- function(what, ours, reference) {
  ours <- as.numeric(ours)
  reference <- as.numeric(reference)
  excess <- abs(ours - reference) / (1e-8 * abs(reference) + 1e-9)
  if (length(ours) != length(reference) || anyNA(excess) || any(excess > 1)) {
    cat(getwd(), what, ": ours", format(ours, digits = 12), "reference", format(reference, digits = 12), "\n")
    failed <<- TRUE
  }
}

pool_values <- function(fit)
  c(fit$beta, fit$se, fit$zval, fit$pval, fit$ci.lb, fit$ci.ub, fit$QE, fit$QEp, fit$tau2, fit$I2, fit$H2)

# The lines "# key = value" of a file.
values_of <- function(file) {
  lines <- grep("^# ", readLines(file), value = TRUE)
  setNames(as.list(sub("^[^=]*= ", "", lines)), sub("^# ([^ ]+) = .*", "\\1", lines))
}

compare_pool <- function(values, fit) {
  half <- qt(0.975, fit$k - 2) * sqrt(fit$tau2 + fit$se^2)
  compare("prediction", c(values$prediction_low_95, values$prediction_high_95), c(fit$beta) + c(-half, half))
  # metafor's own interval has normal quantiles; its standard error is the same.
  limits <- predict(fit)
  compare("prediction error", half / qt(0.975, fit$k - 2), (limits$pi.ub - limits$pi.lb) / 2 / qnorm(0.975))
  egger <- regtest(fit, model = "lm")
  slope <- summary(egger$fit)$coefficients
  compare("Egger", c(values$egger_slope, values$egger_standard_error, values$egger_t, values$egger_p,
                     values$egger_df, values$egger_intercept),
          c(slope[2, 1:2], egger$zval, egger$pval, egger$dfs, slope[1, 1]))
}

for (folder in folders_of("pools")) {
  setwd(folder)
  effects <- read.delim("effects.tsv")
  pools <- read.delim("pools.tsv")
  for (row in seq_len(nrow(pools))) {
    used <- setdiff(seq_len(nrow(effects)), pools$left_out[row])
    fit <- rma(yi = effects$g[used], vi = effects$v[used], method = "DL")
    compare(paste("pool without", pools$left_out[row]), unlist(pools[row, -1]), pool_values(fit))
  }
  if (nrow(effects) > 2) {
    one_out <- leave1out(rma(yi = effects$g, vi = effects$v, method = "DL"))
    compare("leave1out", unlist(pools[-1, c("g", "se", "p", "Q", "tau2")]),
            c(one_out$estimate, one_out$se, one_out$pval, one_out$Q, one_out$tau2))
  }
}

for (folder in folders_of("globals")) {
  setwd(folder)
  table <- read.delim("kvo_table.txt")
  effects <- if ("n2" %in% names(table))
    escalc("SMD", m1i = mean1, sd1i = sd1, n1i = n1, m2i = mean2, sd2i = sd2, n2i = n2, data = table)
  else escalc("SMN", mi = mean1, sdi = sd1, ni = n1, data = table)
  models <- list(None = ~ 1, One = ~ year, Two = ~ patients + age, Four = ~ year + dose + patients + age)
  for (name in names(models)) {
    used <- effects[complete.cases(effects[, c("yi", "vi", all.vars(models[[name]]))]), ]
    if (name == "Two") used <- used[used$kept == 1, ]
    fit <- rma(yi, vi, mods = models[[name]], data = used, method = "DL")
    file <- paste0(name, "_globals.txt")
    ours <- read.delim(file, comment.char = "#")
    compare(paste(name, "coefficients"), unlist(ours[, -1]),
            c(fit$beta, fit$se, fit$zval, fit$pval, fit$ci.lb, fit$ci.ub))
    values <- values_of(file)
    compare(paste(name, "heterogeneity"), values[c("Q", "Q_p", "tau2", "I2", "H2", "studies")],
            c(fit$QE, fit$QEp, fit$tau2, fit$I2, fit$H2, fit$k))
    if (name == "None") compare_pool(values, fit)
    else compare(paste(name, "QM"), values[c("QM", "QM_p", "QM_df")], c(fit$QM, fit$QMp, fit$m))
    if (!is.null(values$R2))
      compare(paste(name, "R2"), values$R2, fit$R2)
    rows <- read.csv(paste0(name, "_globals.csv"))
    if (!identical(rows$study, used$study)) failed <- TRUE
    compare(paste(name, "effects"), c(rows$g, rows$variance, rows$weight),
            c(used$yi, used$vi, 100 * (1 / (used$vi + fit$tau2)) / sum(1 / (used$vi + fit$tau2))))
  }
}

setwd(folders_of("extract"))
for (mask in c("Left_amygdala", "26_-12_4", "gray_matter")) {
  file <- paste0("extract_", mask, ".txt")
  ours <- read.delim(file, comment.char = "#")
  values <- values_of(file)
  fit <- rma(yi = ours$g, vi = ours$variance, method = "DL")
  compare("pool", values[c("g", "standard_error", "z", "p", "low_95", "high_95", "Q", "Q_p", "tau2", "I2", "H2")],
          pool_values(fit))
  compare("weights", ours$weight, weights(fit))
  compare("standard errors", ours$standard_error^2, ours$variance)
  compare_pool(values, fit)
}

setwd(folders_of("names"))
table <- read.table("kvo_table.txt", header = TRUE, quote = "", comment.char = "")
ours <- read.delim("extract_<b>&.txt", comment.char = "#")
if (!identical(ours$study, table$study)) {
  print(list(ours$study, table$study))
  failed <- TRUE
}
if (failed) quit(status = 1)
