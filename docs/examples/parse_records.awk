#!/usr/bin/awk -f
# Reads record lines, one table row out for each: kind, data group, time, object, instance, samples, and the median of
# percentiles and baselines or the average of a summary, "-" where there is none.
#
#   zorstat replay data/net.csv --config data/net.toml --headers | docs/examples/parse_records.awk
BEGIN { FS = ", "; OFS = "\t" }
{ sub(/\r$/, "") }
/^Schema-def / { names = 1; next } # the header's second line names the fields
names { names = 0; next }
{
  at = index($1, ": ")
  head = substr($1, 1, at - 1)
  fields = match(head, /-(summary|percentile|baseline)$/) ? (head ~ /-summary$/ ? 7 : 13) : 0
  if (!fields || (NF != 4 && NF != fields)) {
    print "line " NR ": not a record" > "/dev/stderr"
    exit 1
  }
  kind = substr(head, RSTART + 1)
  value = NF == 4 ? "-" : kind == "summary" ? $7 : $9
  print kind, substr(head, 1, RSTART - 1), substr($1, at + 2), $2, $3, $4, value
}
