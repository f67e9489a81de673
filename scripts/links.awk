# Prints each broken relative link in the given Markdown files as FILE:LINE: TARGET: reason. Run it from
# the project's top folder. Exit status 1 if there is one. Links to other sites are not checked.

function folder(path) { return path ~ /\// ? substr(path, 1, match(path, /\/[^\/]*$/)) : "" }

function without_dots(path) {
  while (sub(/[^\/]+\/\.\.\//, "", path)) {}
  gsub(/(^|\/)\.\//, "/", path)
  sub(/^\//, "", path)
  sub(/\/$/, "", path)
  return path
}

# The anchor that Markdown renderers generate for an ASCII heading.
function anchor(heading) {
  sub(/^#+ +/, "", heading)
  gsub(/\]\([^)]*\)/, "", heading)
  heading = tolower(heading)
  gsub(/[^a-z0-9 _-]/, "", heading)
  gsub(/ /, "-", heading)
  return heading
}

function complain(i, why) {
  print at[i] ": " target[i] ": " why
  failed = 1
}

FNR == 1 { in_block = 0 }
/^ *```/ { in_block = !in_block; next }
in_block { next }

/^#+ / {
  name = anchor($0)
  same = seen[FILENAME, name]++
  anchors[FILENAME "#" name (same ? "-" same : "")] = 1
}

{
  text = $0
  gsub(/`[^`]*`/, "", text)
  while (match(text, /\]\([^)]*\)/)) {
    links++
    at[links] = FILENAME ":" FNR
    from[links] = FILENAME
    target[links] = substr(text, RSTART + 2, RLENGTH - 3)
    text = substr(text, RSTART + RLENGTH)
  }
}

END {
  for (i = 1; i <= links; i++) {
    if (target[i] ~ /^[a-z]+:/) continue
    hash = index(target[i], "#")
    path = hash ? substr(target[i], 1, hash - 1) : target[i]
    name = hash ? substr(target[i], hash + 1) : ""
    path = path == "" ? from[i] : without_dots(folder(from[i]) path)
    if (system("test -e '" path "'") != 0) complain(i, "no such file")
    else if (name != "" && path ~ /\.md$/ && !((path "#" name) in anchors)) complain(i, "no such heading")
  }
  exit failed
}
