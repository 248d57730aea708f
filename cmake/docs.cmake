# Target `docs`: the headers of the library and of the host, and the documents, as HTML in docs/html
# of the build folder. A warning is an error, such as a declaration without a comment or a dead link.
find_package(Doxygen)
if(DOXYGEN_FOUND)
  set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
  set(DOXYGEN_PROJECT_BRIEF "The receiving side of XCP data acquisition")
  set(DOXYGEN_FULL_PATH_NAMES NO)
  set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
  set(DOXYGEN_GENERATE_LATEX NO)
  set(DOXYGEN_HAVE_DOT NO)
  set(DOXYGEN_MACRO_EXPANSION YES)
  set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
  set(DOXYGEN_PREDEFINED "XCP_DAQ_EXPORT=" "__attribute__(x)=" "alignas(x)=")
  set(DOXYGEN_EXCLUDE_SYMBOLS "std::*")
  set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
  set(DOXYGEN_QUIET YES)
  set(DOXYGEN_USE_MDFILE_AS_MAINPAGE docs/writing-a-task.md)
  doxygen_add_docs(docs
    ${public_headers} docs/writing-a-task.md docs/formats.md docs/architecture.md
    docs/messages.md docs/performance.md
    COMMENT "Public headers and documents")
endif()
