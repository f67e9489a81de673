# Lists includes that do not point downwards, and class names that two headers define, one per line;
# fails if there are any. Usage:
#   awk -f scripts/includes.awk FILE...
#
# A file may include its own folder's headers and those of the folders below it:
#   tools/main.cpp, tools/commands, tools/SUBJECT, tools/store, tools/ui, tools/platform, db, base
# A subject is any other folder of tools/, with the folders in it. Subjects do not include each other.
# Nothing below addons/ includes it. db/ includes only db/ and base/; base/ includes only base/.
#
# Headers of tools/ share one namespace. Neither compiler nor linker reports two classes with one name.

# The subject, or the folder, that the path belongs to.
function part_of(path, names) {
  split(path, names, "/")
  if (names[1] != "tools") return names[1]
  return path ~ /^tools\/[^\/]*$/ ? "main" : "tools/" names[2]
}

function level_of(part) {
  if (part == "base") return 1
  if (part == "db") return 2
  if (part == "addons") return 3
  if (part == "tools/platform") return 4
  if (part == "tools/ui") return 5
  if (part == "tools/store") return 6
  if (part == "tools/commands") return 8
  if (part == "main") return 9
  return 7
}

/^[ \t]*#[ \t]*include[ \t]*"/ {
  split($0, quoted, "\"")
  target = quoted[2]
  if (target !~ /^(base|db|addons|tools)\//) next
  from = part_of(FILENAME)
  to = part_of(target)
  if (from == to || level_of(to) < level_of(from)) next
  printf "%s:%d: %s must not include %s\n", FILENAME, FNR, from, target
  failed = 1
}

FILENAME ~ /^tools\/.*\.h$/ && /^(class|struct|enum class|enum) [A-Z][A-Za-z]*( final)?( :.*)? *[:{]/ {
  name = $1 == "enum" && $2 == "class" ? $3 : $2
  sub(/[:{].*/, "", name)
  if (name in defined) {
    printf "%s:%d: %s defines %s, too\n", FILENAME, FNR, defined[name], name
    failed = 1
  }
  defined[name] = FILENAME
}

END { exit failed }
