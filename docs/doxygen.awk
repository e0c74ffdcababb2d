# What the headers say without Doxygen's words: the comment at the head is the file's, and functions that stand together
# share the comment above the first. Adds no line, so that line numbers stay.
FNR == 1 && /^\/\/\/ / { $0 = "/// @file\n" $0 }
FNR > 1 && previous == "#pragma once" && $0 == "" { previous = $0; next }
/^MAILSERVER_EXPORT / && previous ~ /;$/ { $0 = "/** As the one before. */ " $0 }
{ previous = $0; print }
