# The demo's last part: the killed job again, now into a database table. Sourced by scripts/demo.
# shellcheck shell=bash disable=SC2154

# Compares the rows of a CSV file with a header and those of a table: two counts and two checksums.
readonly compare_rows='
import csv, hashlib, sqlite3, sys

def checksum(rows):
    digest, count = hashlib.sha256(), 0
    for row in rows:
        digest.update(repr(tuple(value or None for value in row)).encode())
        count += 1
    return count, digest.hexdigest()

with open(sys.argv[1], newline="", encoding="utf-8") as file:
    reader = csv.reader(file)
    next(reader)
    wanted = checksum(reader)
table = sqlite3.connect(sys.argv[2]).execute("select * from rows order by cast(id as integer)")
found = checksum(table)
for name, (count, digest) in ((sys.argv[1], wanted), (sys.argv[2], found)):
    print(f"{digest}  {count:,} rows  {name}")
sys.exit(wanted != found)'

make_rows() {
  say "making a million rows"
  python3 -c '
import csv
notes = ["plain", "with, comma", "with \"quotes\"", "with\na line break", "", "\u00e9\u6f22"]
with open("rows.csv", "w", newline="", encoding="utf-8") as file:
    writer = csv.writer(file)
    writer.writerow(["id", "amount", "note"])
    for i in range(1_000_000):
        writer.writerow([i, i * 7919 % 100_003, notes[i % len(notes)]])'
}

database_job() {
  local feed load position=0 deadline=$((SECONDS + 120))
  local command=(tallow-load --pipe '\\.\pipe\rows' --to 'Driver={SQLite3};Database=rows.db'
    --table rows --header --create --checkpoint-every 2)
  chapter "The killed and restarted job once more, now into a database table"
  make_rows
  start tallow-feed --pipe '\\.\pipe\rows' --in rows.csv
  feed=$started
  start "${command[@]}"
  load=$started
  until ((position >= 8)); do
    kill -0 "$load" 2>/dev/null || fail "the load ended too early: $(cat said/tallow-load)"
    ((SECONDS < deadline)) || fail "no checkpoint in the database within two minutes"
    sleep 0.02
    position=$(sqlite3 -readonly rows.db 'select block_position from tallow_checkpoint' \
      2>/dev/null || true)
    position=${position:-0}
  done
  echo "\$ kill -KILL $load   # the loader, at block $position or a little later"
  kill -KILL "$load" 2>/dev/null || fail "the load was over before it could be killed"
  wait "$load" 2>/dev/null || true
  wait "$feed" || cat said/tallow-feed
  echo "rows in the table, as many as its checkpoint says:"
  echo "\$ sqlite3 rows.db 'select count(*) from rows; select rows_loaded from tallow_checkpoint'"
  sqlite3 rows.db 'select count(*) from rows; select rows_loaded from tallow_checkpoint'

  chapter "The loader goes on from what the database says; every row is there once"
  start tallow-feed --pipe '\\.\pipe\rows' --in rows.csv
  show "${command[@]}" --restart
  finish tallow-feed "$started"
  echo "\$ sqlite3 rows.db 'select count(*) from rows'"
  sqlite3 rows.db 'select count(*) from rows'
  python3 -c "$compare_rows" rows.csv rows.db || fail "the table's rows are not the input's"
  echo "the same rows"
}
