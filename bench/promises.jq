# Makes bench/run's table of promises: jq -nr --rawfile promises promises.txt --argjson all BOOL -f promises.jq REPORT.json...
# The reports are Google Benchmark's; a row's counters "reached" and "at_least" or "at_most" are what counts. Without `all`
# only the promises of the programs that reported are listed. A row with a bound that no promise names, or two, is an error.

def shown($unit):
  (if . >= 100 then round elif . >= 10 then (. * 10 | round) / 10 elif . >= 1 then (. * 100 | round) / 100
   else (. * 1000 | round) / 1000 end | tostring)
  + (if $unit == "instructions" then "" else " " + $unit end);

# How much of the bound is used; beyond 1 it is missed.
def used: if .at_least != null then .at_least / .reached else .reached / .at_most end;
def bounded: .at_least != null or .at_most != null;

# Of a row that is repeated the median counts, and any error.
def row_of($runs):
  ($runs | map(select(.error_occurred == true)) | .[0]) as $wrong
  | if $wrong then {row: $runs[0].row, error: $wrong.error_message}
    else ($runs | map(select(.aggregate_name == "median")) + map(select(.run_type == "iteration")) | .[0]) end;

def verdict($rows):
  ($rows | map(select(.error)) | .[0]) as $wrong
  | ($rows | map(select(bounded)) | sort_by(used)) as $measured
  | if $wrong then {result: "not measured", why: ($wrong.row + ": " + $wrong.error)}
    elif ($measured | length) == 0 then {result: "not measured", why: "no row of it ran"}
    else $measured[-1] | . + {result: (if used <= 1 then "met" else "MISSED" end),
      why: (if ($measured | length) > 1 then (.row | sub("^[^/]*/"; "")) else (.label // "" | capture("\\((?<of>.*)\\)$").of) // "" end)} end;

($promises | split("\n") | map(select(test("^[^#]"))) | map(split("\\s+\\|\\s+"; null))
  | map({rows: ("^(" + .[0] + ")$"), unit: .[1], words: .[2]})) as $list
| [inputs | (.context.executable | sub(".*/"; "")) as $program | .benchmarks[]
   | . + {program: $program, row: ($program + "/" + (.run_name | sub("/(iterations|repeats|min_time|manual_time|real_time)\\b.*"; "")))}]
| (map(.program) | unique) as $programs
| (group_by(.row) | map(row_of(.))) as $rows
| ($rows | map(select(bounded)) | map(. as $row | {row, promises: ($list | map(select(.rows as $r | $row.row | test($r))) | length)})
   | map(select(.promises != 1) | "\(.row) has a bound and stands for \(.promises) promises")) as $strays
| if ($strays | length) > 0 then error($strays | join("; ")) else . end
| $list | map(select($all or (.rows as $r | any($programs[]; . as $p | $r | startswith("^(" + $p + "/")))))
| map(. as $promise | verdict($rows | map(select(.row | test($promise.rows)))) + {words: .words, unit: .unit})
| "| Promise | Reached | Promised | | Worst of |", "|---|---|---|---|---|",
  (.[] | "| \(.words) | " + (if .reached then "\(.unit as $u | .reached | shown($u)) | "
     + (if .at_least != null then "at least \(.at_least)" else "at most \(.at_most)" end) else " | " end) + " | \(.result) | \(.why) |"),
  "", "\(length) promises: " + (. as $all | ["met", "MISSED", "not measured"]
     | map(. as $r | "\($all | map(select(.result == $r)) | length) \($r)") | join(", ")) + "."
