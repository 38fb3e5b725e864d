# Run by the build: fills TEMPLATE into OUTPUT. Writes always, so that the output is never older than
# what it depends on.
string(TIMESTAMP BUILD_TIME "%Y-%m-%d %H:%M:%S" UTC)
file(READ ${TEMPLATE} text)
string(CONFIGURE "${text}" text @ONLY)
file(WRITE ${OUTPUT} "${text}")
