# Turns one carried data file into a C++ source holding its bytes.
# Run as: cmake -DINPUT=file -DOUTPUT=file.cpp -DSYMBOL=name -P embed.cmake
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" hexlen)
math(EXPR size "${hexlen} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
string(REGEX REPLACE "((0x..,){24})" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}"
  "// Generated from ${INPUT}; do not edit.\n"
  "extern const unsigned char ${SYMBOL}[] = {\n${bytes}0x00};\n"
  "extern const unsigned int ${SYMBOL}_size = ${size};\n")
