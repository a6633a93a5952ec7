-- JSON Lines of zorstat on standard input into SQLite, where sqlite.sql was read before; the same lines twice change
-- nothing:
--
--   cat *.jsonl | sqlite3 -bail fleet.db '.read sqlite.sql' '.read sqlite_import.sql'
CREATE TEMP TABLE line(j TEXT);
.mode tabs
BEGIN IMMEDIATE;
.import /dev/stdin line
INSERT OR REPLACE INTO zorstat
-- numbers of 64 bits as sqlite.sql has them
SELECT j->>'time', j->>'host', j->>'group', j->>'object', j->>'instance', j->>'samples',
  iif(typeof(j->>'min') = 'real', substr('0' || (j->'min'), -20), j->>'min'),
  iif(typeof(j->>'max') = 'real', substr('0' || (j->'max'), -20), j->>'max'),
  iif(typeof(j->>'sum') = 'real', substr('0' || (j->'sum'), -20), j->>'sum'),
  j->>'percentiles',
  iif(typeof(j->>'start') = 'real', substr('0' || (j->'start'), -20), j->>'start'),
  iif(typeof(j->>'last') = 'real', substr('0' || (j->'last'), -20), j->>'last'),
  j->>'below', j->>'above', j->>'buckets',
  iif(typeof(j->>'low') = 'real', substr('0' || (j->'low'), -20), j->>'low'),
  iif(typeof(j->>'high') = 'real', substr('0' || (j->'high'), -20), j->>'high'),
  j->>'outside', j->>'resets', j->>'refused'
FROM line;
COMMIT;
