# Includes point down the layers, never up: a source file may include headers of its own folder
# and of the folders of lower layers. The folders of the core are one library, so they may
# include each other; any other two folders of one layer may not.
#
#   cmake -DSOURCE_DIR=<dir holding the folders> [-DSTAMP=<file>] -P CheckLayers.cmake
#
# Fails with one line per upward include. The build runs it before the window's libraries, and
# CTest runs it as the test "layers".

# Lowest first. base, keep and launcher are plain C++ that includes no other folder.
set(SALVORA_LAYERS
    "base keep launcher"
    "cache volumes common browser"
    "logic"
    "ui"
    "controller"
    "app menu cli daemon")
set(SALVORA_CORE_LAYER 1)

if(NOT SOURCE_DIR)
    message(FATAL_ERROR "CheckLayers: SOURCE_DIR is not set")
endif()

set(rank 0)
foreach(layer IN LISTS SALVORA_LAYERS)
    string(REPLACE " " ";" folders "${layer}")
    foreach(folder IN LISTS folders)
        set(rank_of_${folder} ${rank})
    endforeach()
    math(EXPR rank "${rank} + 1")
endforeach()

file(GLOB_RECURSE sources RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/*.h ${SOURCE_DIR}/*.cpp ${SOURCE_DIR}/*.c)
list(SORT sources)
set(upward "")
foreach(source IN LISTS sources)
    string(REGEX MATCH "^[^/]+" from "${source}")
    if(NOT DEFINED rank_of_${from})
        list(APPEND upward "${source}: its folder \"${from}\" has no layer")
        continue()
    endif()
    file(STRINGS ${SOURCE_DIR}/${source} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    foreach(line IN LISTS includes)
        string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]*)\".*" "\\1" header "${line}")
        if(header MATCHES "^ui_[^/]*\\.h$")
            # The interface files' generated headers belong to the widgets.
            set(to ui)
        elseif(header MATCHES "^([^/]+)/")
            set(to ${CMAKE_MATCH_1})
        else()
            continue() # beside the including file
        endif()
        if(to STREQUAL from)
            continue()
        endif()
        if(NOT DEFINED rank_of_${to})
            list(APPEND upward "${source}: includes \"${header}\" from a folder without a layer")
        elseif(rank_of_${to} GREATER rank_of_${from})
            list(APPEND upward "${source}: includes \"${header}\", a layer above ${from}")
        elseif(rank_of_${to} EQUAL rank_of_${from} AND NOT rank_of_${to} EQUAL SALVORA_CORE_LAYER)
            list(APPEND upward "${source}: includes \"${header}\", beside ${from} in its layer")
        endif()
    endforeach()
endforeach()

if(upward)
    list(JOIN upward "\n  " text)
    message(FATAL_ERROR "Includes that do not point down the layers:\n  ${text}")
endif()
if(STAMP)
    file(TOUCH ${STAMP})
endif()
