# Writes t_statistic.tsv: t statistics of z scores and of -log10 p values as base R computes them.
# Rscript t_statistic.R > t_statistic.tsv
df <- c(2, 3, 14.7, 100, 9999)
z <- c(1e-12, 1e-6, 0.1, 1.28, 1.2816, 3.09, 8.3, 19.9, 20.1, 38)
log10_p <- c(0.001, 0.1, 0.302, 0.999, 1.001, 3, 15.9, 50, 300)
row <- function(kind, value, df, t)
  cat(sprintf("%s\t%.17g\t%.17g\t%.17g\n", kind, value, df, t), sep = "")
cat("kind\tvalue\tdf\tt\n")
for (n in df) {
  # Near 0 the logarithm of the upper tail has no digits left, so R is asked for the probability
  # between 0 and z instead, to first order.
  small <- z < 1e-4
  row("z", z[small], n, z[small] * dnorm(0) / dt(0, n))
  t <- qt(pnorm(z[!small], lower.tail = FALSE, log.p = TRUE), n, lower.tail = FALSE, log.p = TRUE)
  row("z", z[!small], n, t)
  row("log10_p", log10_p, n, qt(-log10_p * log(10), n, lower.tail = FALSE, log.p = TRUE))
}
