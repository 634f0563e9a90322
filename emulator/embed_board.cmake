# Turns a board description into a C++ source holding its text.
file(READ ${INPUT} QOR_BOARD_TEXT)
file(WRITE ${OUTPUT} "// Generated from boards/default.json; do not edit.\n"
  "namespace qor::emu {\nextern const char kBuiltInBoardJson[] = R\"QORBOARD(${QOR_BOARD_TEXT})QORBOARD\";\n}\n")
