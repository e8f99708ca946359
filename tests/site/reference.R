# Makes reference.json: what R's distribution functions say of the statistics that the site's
# converters know. Run it in this folder: Rscript reference.R

options(digits = 17)
df_values <- c(1, 2, 3.5, 10, 30, 998, 9999, 1e5)

# Upper-tail probabilities from the middle to where they are far below the smallest number.
t_values <- c(0, 1e-8, 0.1, 0.5, 1, 1.7, 3, 5, 12, 40, 1000)
upper_t <- expand.grid(t = t_values, df = df_values)
upper_t$lnP <- pt(upper_t$t, upper_t$df, lower.tail = FALSE, log.p = TRUE)

upper_normal <- data.frame(z = c(0, 1e-8, 0.1, 0.7, 1, 1.5, 2, 3, 5, 8, 15, 38, 100, 1000))
upper_normal$lnP <- pnorm(upper_normal$z, lower.tail = FALSE, log.p = TRUE)

ln_p <- c(log(c(0.499, 0.4, 0.2, 0.05, 0.01, 0.001, 1e-8, 1e-15)), -c(100, 300, 400) * log(10))
quantile_t <- expand.grid(lnP = ln_p, df = df_values)
quantile_t$t <- qt(quantile_t$lnP, quantile_t$df, lower.tail = FALSE, log.p = TRUE)
# One step of Newton's method makes R's value in the tail as good as its distribution function.
for (step in 1:2) {
  lnP <- pt(quantile_t$t, quantile_t$df, lower.tail = FALSE, log.p = TRUE)
  slope <- -exp(dt(quantile_t$t, quantile_t$df, log = TRUE) - lnP)
  change <- -(lnP - quantile_t$lnP) / slope
  quantile_t$t <- quantile_t$t + ifelse(is.finite(change), change, 0)
}

quantile_normal <- data.frame(lnP = ln_p)
quantile_normal$z <- qnorm(ln_p, lower.tail = FALSE, log.p = TRUE)

J <- data.frame(df = c(2, 3, 5, 24, 100, 9999))
# Of the beta function, because two large lgamma() would cancel.
J$J <- exp(log(pi) / 2 - lbeta((J$df - 1) / 2, 1 / 2)) / sqrt(J$df / 2)

json <- function(data) {
  rows <- apply(data, 1, function(row)
    paste0("{", paste0('"', names(data), '": ', sprintf("%.16g", row), collapse = ", "), "}"))
  paste0("[\n", paste0("  ", rows, collapse = ",\n"), "\n]")
}
tables <- list(upper_t = upper_t, upper_normal = upper_normal, quantile_t = quantile_t,
               quantile_normal = quantile_normal, J = J)
tables <- lapply(tables, function(table) table[apply(is.finite(as.matrix(table)), 1, all), ])
writeLines(paste0("{", paste0('"', names(tables), '": ', sapply(tables, json), collapse = ",\n"), "}"),
           "reference.json")
