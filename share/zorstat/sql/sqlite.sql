-- History of zorstat in SQLite 3.37 or newer: zorstat --sqlite makes this by itself, and
-- sqlite3 history.db <sqlite.sql where JSON Lines are to be imported.
--
-- A number beyond 64 bits with a sign is text of 20 digits, with leading zeros: then comparisons, min(), max() and
-- ORDER BY are right, and arithmetic gives the nearest floating-point number.
PRAGMA application_id = 2054124147;
PRAGMA user_version = 1;

-- One row per interval and instance, as a line of JSON has it.
CREATE TABLE IF NOT EXISTS zorstat(
  time INTEGER NOT NULL, -- of the interval's last poll, seconds since 1970
  host TEXT NOT NULL, "group" TEXT NOT NULL, object TEXT NOT NULL, instance TEXT NOT NULL,
  samples INTEGER, min ANY, max ANY, sum ANY,
  percentiles TEXT, -- array of the values at 0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87 and 100 %
  start ANY, last ANY, below INTEGER, above INTEGER, -- the range of the buckets, and samples beyond it
  buckets TEXT, -- array of the samples in each
  low ANY, high ANY, outside INTEGER, -- of a baseline: its range, and samples of the interval beyond it
  resets INTEGER, refused INTEGER,
  PRIMARY KEY (host, "group", object, instance, time)
) STRICT, WITHOUT ROWID;

CREATE VIEW IF NOT EXISTS zorstat_summary AS
SELECT datetime(time, 'unixepoch') AS utc, time, host, "group", object, instance,
  samples, min, 1.0 * sum / samples AS average, max
FROM zorstat WHERE samples > 0;

-- A row per point.
CREATE VIEW IF NOT EXISTS zorstat_percentile AS
SELECT datetime(time, 'unixepoch') AS utc, time, host, "group", object, instance,
  json_extract('[0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87, 100]', '$[' || key || ']') AS percent, value
FROM zorstat, json_each(percentiles);

-- A row per bucket with samples, which have values from first to last. Those beyond the range are between it and
-- the smallest or largest sample.
CREATE VIEW IF NOT EXISTS zorstat_bucket AS
SELECT time, host, "group", object, instance, start, last, size, -1 AS bucket,
  min AS first, start - 1 AS last_value, below AS samples
FROM (SELECT *, json_array_length(buckets) AS size FROM zorstat) WHERE below > 0
UNION ALL
SELECT time, host, "group", object, instance, start, last, size, key,
  start + ((last - start + 1) * key + size - 1) / size, start + ((last - start + 1) * (key + 1) + size - 1) / size - 1,
  value
FROM (SELECT *, json_array_length(buckets) AS size FROM zorstat), json_each(buckets) WHERE value > 0
UNION ALL
SELECT time, host, "group", object, instance, start, last, size, size, last + 1, max, above
FROM (SELECT *, json_array_length(buckets) AS size FROM zorstat) WHERE above > 0;
