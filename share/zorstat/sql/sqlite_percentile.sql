-- Percentiles of all samples of :object together from :from up to :to, seconds since 1970, as zorstat query
-- estimates them. Buckets that cannot be added stand apart. To be changed at will: hosts and instances are conditions
-- in the first lines, what is told apart is in kind.
--
--   sqlite3 history.db '.param set :object system' '.param set :from 0' '.param set :to 1e12' \
--     '.read /usr/share/zorstat/sql/sqlite_percentile.sql'
WITH
point(percent) AS (VALUES (0), (0.13), (2.28), (15.87), (50), (84.13), (97.72), (99.87), (100)),
bucket AS (
  SELECT "group", start, last, size, bucket, sum(samples) AS samples,
    min(0.0 + low) AS low, max(0.0 + high) AS high, min(0.0 + min) AS min, max(0.0 + max) AS max
  FROM zorstat_bucket WHERE object = :object AND time >= :from AND time < :to
  GROUP BY "group", start, last, size, bucket),
counted AS (
  SELECT "group", start, last, size, samples, low, high,
    sum(samples) OVER (kind ORDER BY bucket) - samples AS before,
    sum(samples) OVER kind AS total, min(min) OVER kind AS min, max(max) OVER kind AS max
  FROM bucket WINDOW kind AS (PARTITION BY "group", start, last, size)),
-- The smallest and the largest sample are known, and nothing lies beyond them.
segment AS (
  SELECT *, max(min, min(max, low)) AS first, max(min, min(max, high)) AS final,
    iif(before = 0, 0.5, 0) AS head, iif(before + samples = total, 0.5, 0) AS tail
  FROM counted),
wanted AS (
  SELECT DISTINCT "group", start, last, size, total, percent,
    CAST(round(percent * 1000) AS INTEGER) * (total - 1) AS place
  FROM segment, point),
-- The samples on both sides of a point, each in the middle of its part of the bucket.
neighbour AS (
  SELECT w."group", w.start, w.last, w.size, w.total, percent, place % 100000 / 100000.0 AS share,
    place / 100000 + step AS rank, step,
    CASE place / 100000 + step WHEN 0 THEN min WHEN w.total - 1 THEN max
      ELSE first + (final - first) * (place / 100000 + step - before + 0.5 - head) / (samples - head - tail) END AS value
  FROM wanted AS w, (SELECT 0 AS step UNION ALL SELECT 1)
  JOIN segment AS s ON (s."group", s.start, s.last, s.size) = (w."group", w.start, w.last, w.size)
    AND place / 100000 + step >= before AND place / 100000 + step < before + samples)
SELECT "group", start, last, size AS buckets, total AS samples, percent,
  round(sum(iif(step = 0, value, share * max(0, value - below))), 3) AS value
FROM (SELECT *, lag(value) OVER (PARTITION BY "group", start, last, size, percent ORDER BY step) AS below
  FROM neighbour)
GROUP BY "group", start, last, size, percent;
