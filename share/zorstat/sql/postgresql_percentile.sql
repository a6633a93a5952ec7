-- Percentiles of all samples of :object together, of intervals from :from up to :to. Buckets that cannot be added
-- stand apart. To be changed at will: with host in SELECT and GROUP BY of pooled, for instance, each host is apart.
--
--   psql -v object=system -v from=-infinity -v to=infinity -f postgresql_percentile.sql
WITH pooled AS (
  SELECT "group", start, last, cardinality(buckets) AS buckets, sum(samples) AS samples,
    zorstat_sum(buckets) AS counts, sum(below) AS below, sum(above) AS above, min(min) AS min, max(max) AS max
  FROM zorstat
  WHERE object = :'object' AND time >= :'from' AND time < :'to' AND buckets IS NOT NULL
  GROUP BY "group", start, last, cardinality(buckets))
SELECT "group", start, last, buckets, samples, percent,
  zorstat_percentile(percent, start, last, counts, below, above, min, max) AS value
FROM pooled, (VALUES (0), (0.13), (2.28), (15.87), (50), (84.13), (97.72), (99.87), (100)) AS point(percent)
ORDER BY "group", start, last, buckets, percent;
