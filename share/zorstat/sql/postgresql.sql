-- History of zorstat in PostgreSQL 13 or newer, from JSON Lines (zorstat --format jsonl). Once:
--
--   psql -v ON_ERROR_STOP=1 -f postgresql.sql
--
-- then for each file, as one transaction; the same lines twice change nothing:
--
--   psql -1 -v ON_ERROR_STOP=1 -c "\copy zorstat_line FROM 'web1.jsonl' CSV QUOTE E'\x01' DELIMITER E'\x02'" \
--     -c 'SELECT zorstat_import()'

-- A row per interval and instance. Numbers without a sign have up to 64 bits, which bigint does not hold.
CREATE TABLE IF NOT EXISTS zorstat(
  time timestamptz NOT NULL, -- of the interval's last poll
  host text NOT NULL, "group" text NOT NULL, object text NOT NULL, instance text NOT NULL,
  samples bigint, min numeric, max numeric, sum numeric,
  percentiles numeric[], -- at 0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87 and 100 %
  start numeric, last numeric, below bigint, above bigint, -- range of the buckets; samples beyond it
  buckets int[], -- samples in each
  low numeric, high numeric, outside bigint, -- range that a baseline has learnt; samples beyond it
  resets bigint, refused bigint,
  PRIMARY KEY (host, "group", object, instance, time)
) PARTITION BY RANGE (time);

-- Lines on their way. Several can import at once.
CREATE UNLOGGED TABLE IF NOT EXISTS zorstat_line(line jsonb);

-- Makes the partition of a month (UTC), unless it is there.
CREATE OR REPLACE FUNCTION zorstat_partition(moment timestamptz) RETURNS void LANGUAGE plpgsql AS $$
DECLARE
  first timestamptz := date_trunc('month', moment, 'UTC');
BEGIN
  EXECUTE format('CREATE TABLE IF NOT EXISTS %I PARTITION OF zorstat FOR VALUES FROM (%L) TO (%L)',
    'zorstat_' || to_char(first AT TIME ZONE 'UTC', 'YYYY_MM'), first,
    (first AT TIME ZONE 'UTC' + interval '1 month') AT TIME ZONE 'UTC');
END $$;

-- Moves the lines into the table. Returns how many rows are new or have changed.
CREATE OR REPLACE FUNCTION zorstat_import() RETURNS bigint LANGUAGE plpgsql SET client_min_messages = warning AS $$
DECLARE
  changed bigint;
BEGIN
  PERFORM zorstat_partition(month) FROM (
    SELECT DISTINCT date_trunc('month', to_timestamp((line->>'time')::bigint), 'UTC') AS month FROM zorstat_line) AS m;
  WITH moved AS (DELETE FROM zorstat_line RETURNING line AS j)
  INSERT INTO zorstat
  SELECT DISTINCT ON (j->>'host', j->>'group', j->>'object', j->>'instance', j->>'time')
    to_timestamp((j->>'time')::bigint), j->>'host', j->>'group', j->>'object', j->>'instance',
    (j->>'samples')::bigint, (j->>'min')::numeric, (j->>'max')::numeric, (j->>'sum')::numeric,
    translate(j->>'percentiles', '[]', '{}')::numeric[],
    (j->>'start')::numeric, (j->>'last')::numeric, (j->>'below')::bigint, (j->>'above')::bigint,
    translate(j->>'buckets', '[]', '{}')::int[],
    (j->>'low')::numeric, (j->>'high')::numeric, (j->>'outside')::bigint,
    (j->>'resets')::bigint, (j->>'refused')::bigint
  FROM moved
  ON CONFLICT (host, "group", object, instance, time) DO UPDATE SET
    (samples, min, max, sum, percentiles, start, last, below, above, buckets, low, high, outside, resets, refused) =
    ROW(excluded.samples, excluded.min, excluded.max, excluded.sum, excluded.percentiles, excluded.start,
      excluded.last, excluded.below, excluded.above, excluded.buckets, excluded.low, excluded.high, excluded.outside,
      excluded.resets, excluded.refused)
  WHERE zorstat IS DISTINCT FROM excluded;
  GET DIAGNOSTICS changed = ROW_COUNT;
  RETURN changed;
END $$;

-- Samples per bucket, added. Refuses different numbers of buckets; that their ranges are the same, GROUP BY start,
-- last or zorstat_same() sees to.
CREATE OR REPLACE FUNCTION zorstat_add(a bigint[], b bigint[]) RETURNS bigint[]
LANGUAGE plpgsql IMMUTABLE PARALLEL SAFE STRICT AS $$
BEGIN
  IF a = '{}' OR b = '{}' THEN RETURN a || b; END IF;
  IF cardinality(a) <> cardinality(b) THEN
    RAISE 'distributions of % and of % buckets cannot be added', cardinality(a), cardinality(b);
  END IF;
  RETURN ARRAY(SELECT x + y FROM unnest(a, b) AS both_of(x, y));
END $$;
CREATE OR REPLACE FUNCTION zorstat_add(a bigint[], b int[]) RETURNS bigint[]
LANGUAGE sql IMMUTABLE PARALLEL SAFE STRICT AS 'SELECT zorstat_add(a, b::bigint[])';
CREATE OR REPLACE AGGREGATE zorstat_sum(int[]) (
  SFUNC = zorstat_add, STYPE = bigint[], INITCOND = '{}', COMBINEFUNC = zorstat_add, PARALLEL = SAFE);

-- The value that all rows have; refuses different ones.
CREATE OR REPLACE FUNCTION zorstat_check_same(a numeric, b numeric) RETURNS numeric
LANGUAGE plpgsql IMMUTABLE PARALLEL SAFE STRICT AS $$
BEGIN
  IF a <> b THEN RAISE 'distributions of different ranges cannot be added: % and %', a, b; END IF;
  RETURN a;
END $$;
CREATE OR REPLACE AGGREGATE zorstat_same(numeric) (
  SFUNC = zorstat_check_same, STYPE = numeric, COMBINEFUNC = zorstat_check_same, PARALLEL = SAFE);

-- The value at `percent` of a distribution, as zorstat query estimates it: each sample stands in the middle of its
-- part of the bucket, the smallest and the largest are known, and a point lies between two samples.
CREATE OR REPLACE FUNCTION zorstat_percentile(percent numeric, start numeric, last numeric, counts bigint[],
  below numeric, above numeric, min numeric, max numeric) RETURNS numeric
LANGUAGE plpgsql IMMUTABLE PARALLEL SAFE STRICT AS $$
DECLARE
  size int := cardinality(counts);
  width numeric := (last - start + 1) / greatest(size, 1);
  all_counts numeric[] := below || counts::numeric[] || above;
  total numeric := (SELECT sum(n) FROM unnest(all_counts) AS n);
  place numeric := percent * (total - 1) / 100;
  rank numeric := floor(place);
  before numeric := 0;
  n numeric;
  low numeric;
  high numeric;
  head numeric;
  tail numeric;
  value numeric;
  lower numeric;
BEGIN
  FOR i IN 0 .. size + 1 LOOP
    n := all_counts[i + 1];
    low := CASE i WHEN 0 THEN min ELSE start + ceil((i - 1) * width) END;
    high := CASE i WHEN size + 1 THEN max ELSE start + ceil(i * width) - 1 END;
    low := greatest(min, least(max, low));
    high := greatest(low, least(max, high));
    head := CASE WHEN before = 0 THEN 0.5 ELSE 0 END;
    tail := CASE WHEN before + n = total THEN 0.5 ELSE 0 END;
    WHILE rank < before + n LOOP
      value := CASE rank WHEN 0 THEN min WHEN total - 1 THEN max
        ELSE low + (high - low) * (rank - before + 0.5 - head) / (n - head - tail) END;
      lower := coalesce(lower, value);
      IF rank >= place THEN
        RETURN round(least(max, lower + (place - floor(place)) * greatest(0, value - lower)), 3);
      END IF;
      rank := rank + 1;
    END LOOP;
    before := before + n;
  END LOOP;
  RETURN NULL;
END $$;
