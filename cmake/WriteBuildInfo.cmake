# Run by the build: fills TEMPLATE into OUTPUT, values as they have to stand in a literal of C. Writes
# always, so that the output is never older than what it depends on.
string(TIMESTAMP BUILD_TIME "%Y-%m-%d %H:%M:%S" UTC)
foreach(value IN ITEMS BUILDER LINK_COMMAND TARGET)
  string(REPLACE "\\" "\\\\" ${value} "${${value}}")
  string(REPLACE "\"" "\\\"" ${value} "${${value}}")
endforeach()
file(READ ${TEMPLATE} text)
string(CONFIGURE "${text}" text @ONLY)
file(WRITE ${OUTPUT} "${text}")
