# Fails when the library shows other symbols than the export list names, and says which.
include("${CMAKE_CURRENT_LIST_DIR}/../../cmake/exports.cmake")

brisolt_read_exports("${LIST}" wanted)
set(once ${wanted})
list(REMOVE_DUPLICATES once)
if(NOT once STREQUAL wanted)
    message(SEND_ERROR "the export list names a function twice")
endif()

execute_process(COMMAND "${NM}" -D --defined-only -P "${LIBRARY}"
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" lines "${output}")
# The version node is itself listed, as an absolute symbol. Data has no place in a flat C interface: it keeps its
# kind, and so is surplus.
list(FILTER lines EXCLUDE REGEX "^[^ ]+ A ")
list(TRANSFORM lines REPLACE "(@[^ ]*)? T .*" "" OUTPUT_VARIABLE shown)

set(missing ${wanted})
list(REMOVE_ITEM missing ${shown})
set(surplus ${shown})
list(REMOVE_ITEM surplus ${wanted})
if(missing)
    message(SEND_ERROR "listed but not exported: ${missing}")
endif()
if(surplus)
    message(SEND_ERROR "exported but not listed: ${surplus}")
endif()
