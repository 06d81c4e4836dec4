# Of lines "row figure more", with tabs between: for each row its name, how often it was run, the quickest of its
# figures, how far they differ, as in ratio.h, and what stands behind the last one.
BEGIN { FS = OFS = "\t" }
{
  if (!runs[$1]++) order[++rows] = $1
  for (n = runs[$1]; n > 1 && figure[$1, n - 1] > $2 + 0; --n) figure[$1, n] = figure[$1, n - 1]
  figure[$1, n] = $2 + 0
  more[$1] = $3
}
function quantile(row, share) { return figure[row, 1 + int(share * runs[row])] }
END {
  for (i = 1; i <= rows; ++i) {
    row = order[i]
    print row, runs[row], quantile(row, 0), 100 * (quantile(row, 0.75) - quantile(row, 0.25)) / quantile(row, 0.5), more[row]
  }
}
