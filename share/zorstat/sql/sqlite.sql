-- History of zorstat in SQLite 3.37 or newer. zorstat --sqlite makes it by itself; for JSON Lines see
-- sqlite_import.sql.
--
-- A number above 9223372036854775807 is text of 20 digits, with leading zeros: comparisons, min(), max() and
-- ORDER BY are right with it, and arithmetic goes on with the nearest floating-point number.
PRAGMA application_id = 2054124147;
PRAGMA user_version = 1;

-- A row per interval and instance, with the fields of JSON Lines.
CREATE TABLE IF NOT EXISTS zorstat(
  time INTEGER NOT NULL, -- of the interval's last poll, seconds since 1970
  host TEXT NOT NULL, "group" TEXT NOT NULL, object TEXT NOT NULL, instance TEXT NOT NULL,
  samples INTEGER, min ANY, max ANY, sum ANY,
  percentiles TEXT, -- array of the values at 0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87 and 100 %
  start ANY, last ANY, below INTEGER, above INTEGER, -- range of the buckets, both ends included; samples beyond it
  buckets TEXT, -- array of the samples in each
  low ANY, high ANY, outside INTEGER, -- range that a baseline has learnt; samples of the interval beyond it
  resets INTEGER, refused INTEGER,
  PRIMARY KEY (host, "group", object, instance, time)
) STRICT;

CREATE VIEW IF NOT EXISTS zorstat_summary AS
SELECT datetime(time, 'unixepoch') AS utc, time, host, "group", object, instance,
  samples, min, 1.0 * sum / samples AS average, max
FROM zorstat WHERE samples > 0;

-- A row per point.
CREATE VIEW IF NOT EXISTS zorstat_percentile AS
SELECT datetime(time, 'unixepoch') AS utc, time, host, "group", object, instance,
  json_extract('[0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87, 100]', '$[' || key || ']') AS percent, value
FROM zorstat, json_each(percentiles);

-- A row per bucket with samples, by number: -1 is below the range, `size` above it. Values go from low to high.
-- Buckets can be added where start, last and size are the same.
CREATE VIEW IF NOT EXISTS zorstat_bucket AS
WITH counted AS (
  SELECT *, json_array_length(buckets) AS size, last - start + 1 AS width FROM zorstat WHERE buckets IS NOT NULL)
SELECT time, host, "group", object, instance, min, max, start, last, size, -1 AS bucket,
  min AS low, start - 1 AS high, below AS samples
FROM counted WHERE below > 0
UNION ALL
SELECT time, host, "group", object, instance, min, max, start, last, size, key,
  start + (width * key + size - 1) / size, start + (width * (key + 1) + size - 1) / size - 1, value
FROM counted, json_each(buckets) WHERE value > 0
UNION ALL
SELECT time, host, "group", object, instance, min, max, start, last, size, size, last + 1, max, above
FROM counted WHERE above > 0;
