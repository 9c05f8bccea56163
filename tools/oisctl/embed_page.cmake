# Writes the parts of a report's page into one C++ source. OUTPUT: the source; FOLDER: where the parts are.
set(source "// Generated from report/page/.\n#include \"report/page.h\"\n\nnamespace oisctl {\n\n")
string(APPEND source "PageParts pageParts() {\n    return {\n")
foreach(file page.html page.css page.js)
  file(READ ${FOLDER}/${file} text)
  string(APPEND source "        R\"part(${text})part\",\n")
endforeach()
string(APPEND source "    };\n}\n\n}  // namespace oisctl\n")
file(WRITE ${OUTPUT} "${source}")
