# Writes OUTPUT, a C++ source holding the bytes of each JSON file in INPUTS (a
# |-separated list) as the table declared in BundledTable.h. Run with cmake -P.
string(REPLACE "|" ";" INPUTS "${INPUTS}")
set(arrays "")
set(entries "")
set(count 0)
foreach(input IN LISTS INPUTS)
    get_filename_component(name "${input}" NAME_WE)
    string(MAKE_C_IDENTIFIER "machine_${name}" symbol)
    file(READ "${input}" hex HEX)
    string(LENGTH "${hex}" digits)
    math(EXPR size "${digits} / 2")
    # Byte arrays rather than string literals: no delimiter or length limit to mind.
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
    string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)" "\\1\n" bytes "${bytes}")
    string(APPEND arrays "const unsigned char ${symbol}[] = {\n${bytes}0x00};\n\n")
    string(APPEND entries "    {\"${name}\", ${symbol}, ${size}},\n")
    math(EXPR count "${count} + 1")
endforeach()
if(count EQUAL 0)
    set(entries "    {\"\", nullptr, 0},\n")
endif()
file(WRITE "${OUTPUT}.tmp"
"// Generated from machines/*.json by platform/model/EmbedMachines.cmake; do not edit.
#include \"platform/model/BundledTable.h\"

namespace model::bundled {

namespace {

${arrays}} // namespace

const Entry kEntries[] = {
${entries}};
const std::size_t kEntryCount = ${count};

} // namespace model::bundled
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
