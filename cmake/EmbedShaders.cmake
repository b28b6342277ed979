# Turns shader sources into constant byte arrays. Included, it offers lumaro_embed_shaders(); run with
# cmake -P at build time, it writes the generated source.

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  # -DSHADER_DIR=… -DSHADERS=a,b -DOUTPUT=…
  string(REPLACE "," ";" SHADERS "${SHADERS}")
  set(arrays "")
  set(entries "    {\"shaders\", nullptr, 0},\n")
  foreach(shader IN LISTS SHADERS)
    file(READ "${SHADER_DIR}/${shader}.hlsl" bytes HEX)
    string(LENGTH "${bytes}" digits)
    math(EXPR size "${digits} / 2")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
    string(REGEX REPLACE "(0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,0x..,)"
        "\\1\n    " bytes "${bytes}")
    # The trailing 0 keeps an empty file's array legal; it does not count.
    string(APPEND arrays "const unsigned char ${shader}[] = {\n    ${bytes}0};\n\n")
    string(APPEND entries "    {\"shaders/${shader}.hlsl\", ${shader}, ${size}},\n")
  endforeach()
  file(WRITE "${OUTPUT}" "// Generated from shaders/*.hlsl; changes here are lost.
#include <render/gpu/ShaderLibrary.h>

namespace Render::ShaderLibrary {

namespace {

${arrays}const EmbeddedFile files[] = {
${entries}};

}  // namespace

std::span<const EmbeddedFile> embeddedFiles() { return files; }

}  // namespace Render::ShaderLibrary
")
  return()
endif()

set(LUMARO_EMBED_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")

# lumaro_embed_shaders(OUT NAME…): sets OUT to a source generated from shaders/NAME.hlsl …, made anew
# whenever one of them changes.
function(lumaro_embed_shaders out)
  set(output "${PROJECT_BINARY_DIR}/generated/EmbeddedShaders.cpp")
  list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/shaders/" OUTPUT_VARIABLE inputs)
  list(TRANSFORM inputs APPEND ".hlsl")
  list(JOIN ARGN "," names)
  add_custom_command(
      OUTPUT "${output}"
      COMMAND "${CMAKE_COMMAND}" "-DSHADER_DIR=${PROJECT_SOURCE_DIR}/shaders" "-DSHADERS=${names}"
          "-DOUTPUT=${output}" -P "${LUMARO_EMBED_SCRIPT}"
      DEPENDS ${inputs} "${LUMARO_EMBED_SCRIPT}"
      COMMENT "Embedding the shaders"
      VERBATIM)
  set(${out} "${output}" PARENT_SCOPE)
endfunction()
