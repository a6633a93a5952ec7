# Writes a header that holds the page: cmake -D SOURCE=DIR -D HEADER=FILE -P embed_page.cmake
# The style sheet and the scripts that the page names go into it, as it is one file when it comes to be read.
foreach(part page.html page.css page.js charts.js)
  file(READ ${SOURCE}/${part} ${part})
endforeach()
string(REPLACE "<link rel=\"stylesheet\" href=\"page.css\">" "<style>\n${page.css}</style>" page "${page.html}")
foreach(script charts.js page.js)
  string(REPLACE "<script src=\"${script}\"></script>" "<script>\n${${script}}</script>" page "${page}")
endforeach()
file(WRITE ${HEADER} "constexpr std::string_view kPageHtml = R\"page(${page})page\";\n")
