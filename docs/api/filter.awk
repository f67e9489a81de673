# Makes of a header's contract comments what Doxygen reads. Doxygen runs it on every header
# (INPUT_FILTER); the compiler sees the header as it stands.
#
#   // text, at the head of the file       /// @file, then the text
#   // text, before a declaration          /// text; without one it stays as it is
#   declaration;  // text                  declaration;  ///< text
#   // ---- Title ----                     a group of members with that title
#   // -- Building blocks --               a second group of the same section
#   // text between blank lines            the description of the group, behind its title
#
# A declaration that follows another one without a blank line or a comment of its own shares the
# other one's comment. An operation with a tagged example in examples/operations.cpp receives it,
# at its first declaration. What is private stays as it is, to the end of the class; comments inside
# bodies are of no matter, since Doxygen does not read them.

function is_comment(text) { return text ~ /^ *\/\// }
function is_blank(text) { return text ~ /^ *$/ }
function words(text) { sub(/^ *\/\//, "", text); return text }
function indent(text) { match(text, /^ */); return substr(text, 1, RLENGTH) }

# The name that a line declares as a function, or "".
function function_name(text) {
  if (text !~ /[A-Za-z0-9_]\(/) return ""
  sub(/\(.*/, "", text)
  sub(/.*[ &*]/, "", text)
  return text
}

# The line with its trailing comment made one of what stands before it. Marks of a comment inside a
# text, between quotes, are none.
function with_trailing_comment(text,   at, head, quotes) {
  at = index(text, "  // ")
  if (!at || text ~ /^ *[#}]/) return text
  head = substr(text, 1, at - 1)
  quotes = gsub(/"/, "\"", head)
  return quotes % 2 ? text : head "  ///< " substr(text, at + 5)
}

function close_group() {
  if (open_group) print "  /// @}"
  open_group = 0
}

# Opens a group of members; the text at line `at`, when it stands between blank lines, describes it.
# Returns the last line used.
function begin_group(title, at,   first) {
  close_group()
  print "  /// @name " title
  open_group = 1
  while (at <= count && is_blank(line[at])) at++
  first = at
  if (is_comment(line[at]) && line[at] !~ /\/\/ --/) {
    while (is_comment(line[at])) at++
    if (is_blank(line[at]))
      for (; first < at; first++) print "  ///" words(line[first])
  }
  print "  /// @{\n"
  return first - 1
}

BEGIN {
  while ((getline text < "examples/operations.cpp") > 0)
    if (text ~ /^ *\/\/! \[.*\]$/) {
      gsub(/^ *\/\/! \[|\]$/, "", text)
      example[text] = 1
    }
}

{ line[NR] = $0 }

END {
  count = NR
  i = 1
  if (is_comment(line[1])) print "/// @file"
  for (; is_comment(line[i]); i++) print "///" words(line[i])

  for (; i <= count; i++) {
    text = line[i]
    if (text ~ /^ (private|protected):$/) {
      close_group()
      for (; i < count && line[i] !~ /^};$/; i++) print line[i]
      print line[i]
    } else if (text ~ /^ *\/\/ ---- .* -+$/) {
      section = text
      gsub(/^ *\/\/ ---- | -+$/, "", section)
      i = begin_group(section, i + 1)
    } else if (text ~ /^ *\/\/ -- .* --$/) {
      title = text
      gsub(/^ *\/\/ -- | --$/, "", title)
      i = begin_group(section ": " tolower(title), i + 1)
    } else if (is_comment(text)) {
      first = i
      shared = ""
      for (; is_comment(line[i]); i++) shared = shared indent(line[i]) "///" words(line[i]) "\n"
      commented = !is_blank(line[i])
      if (commented) printf "%s", shared
      else for (; first < i; first++) print line[first]
      i--
    } else {
      if (is_blank(text)) shared = ""
      name = function_name(text)
      declares = !continued && text ~ /^  [a-z]/ && (name != "" || text ~ /^  template/)
      if (declares && !commented && text !~ /= delete/) printf "%s", shared
      if (name != "" && (name in example) && !continued) {
        print "  ///\n  /// @par Example\n  /// @snippet operations.cpp " name
        delete example[name]
      }
      text = with_trailing_comment(text)
      if (text ~ /= delete;$/) text = ""
      print text
      commented = 0
      # A declaration goes on until it ends, a template head until what it is the head of.
      if (!is_blank(text)) continued = text !~ /[;{}:]( *\/\/\/<.*)?$/ && text !~ /^ *#/
    }
  }
}
