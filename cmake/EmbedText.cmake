# cmake -DINPUT=small.xml -DOUTPUT=builtin_chassis.cpp -DHEADER=a/b.h -DNAMESPACE=a::b -DSYMBOL=c_text -P EmbedText.cmake
# writes a source that defines the constant SYMBOL of HEADER as the text of INPUT.
file(READ "${INPUT}" text)
file(WRITE "${OUTPUT}" "// Generated from ${INPUT_NAME}.
#include \"${HEADER}\"

namespace ${NAMESPACE} {

const char* const ${SYMBOL} = R\"~~~~(${text})~~~~\";

}  // namespace ${NAMESPACE}
")
