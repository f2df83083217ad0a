# Includes point down the layers, never up: a source file may include headers of its own folder
# and of the folders below it, as listed here, and nothing else.
#
#   cmake -DSOURCE_DIR=<dir holding the folders> [-DSTAMP=<file>] -P CheckLayers.cmake
#
# Fails with one line per upward include. The build runs it before the core, and CTest runs it as
# the test "layers".

# Each folder with the folders it includes directly; it may also include whatever those may.
# Lowest first, and a folder names only folders listed before it, so no two reach each other.
# The core is shared by the daemon's agent and the command-line tool (no display): common <
# volumes < cache < browser, and neither the agent nor the tool reaches the window's layers.
set(SALVORA_LAYERS
    "base:"
    "keep: base"
    "launcher: base"
    "daemon/shared: base"
    "daemon/privileged: daemon/shared"
    "common: base"
    "volumes: common"
    "cache: volumes"
    "browser: cache"
    "daemon/agent: daemon/shared browser"
    "cli: browser"
    "logic: browser keep launcher"
    "ui: logic"
    "controller: ui"
    "app: controller"
    "menu: controller")
# What runs as root, inside other programs or before Qt is loaded never includes Qt.
set(SALVORA_WITHOUT_QT base keep launcher daemon/shared daemon/privileged)
# Libraries whose folder is on the include path of those that link them: a bare name may be theirs.
set(SALVORA_BARE_NAME_LIBRARIES daemon/shared base)

cmake_policy(VERSION 3.25)
if(NOT SOURCE_DIR)
    message(FATAL_ERROR "CheckLayers: SOURCE_DIR is not set")
endif()
get_filename_component(SOURCE_DIR "${SOURCE_DIR}" ABSOLUTE)

foreach(entry IN LISTS SALVORA_LAYERS)
    string(REGEX MATCH "^[^:]+" folder "${entry}")
    string(REGEX REPLACE "^[^:]+:[ ]*" "" below "${entry}")
    string(REPLACE " " ";" below "${below}")
    set(may_${folder} ${folder})
    foreach(lower IN LISTS below)
        if(NOT DEFINED may_${lower})
            message(FATAL_ERROR "CheckLayers: ${folder} names ${lower} before it is listed")
        endif()
        list(APPEND may_${folder} ${may_${lower}})
    endforeach()
    list(REMOVE_DUPLICATES may_${folder})
endforeach()

# The listed folder that holds a directory (its deepest listed ancestor), or "" in out.
function(layer_of dir out)
    while(NOT dir STREQUAL "" AND NOT dir STREQUAL ".")
        if(DEFINED may_${dir})
            set(${out} ${dir} PARENT_SCOPE)
            return()
        endif()
        get_filename_component(dir "${dir}" DIRECTORY)
    endwhile()
    set(${out} "" PARENT_SCOPE)
endfunction()

file(GLOB_RECURSE sources RELATIVE ${SOURCE_DIR} ${SOURCE_DIR}/*.h ${SOURCE_DIR}/*.cpp ${SOURCE_DIR}/*.c)
list(SORT sources)
set(upward "")
foreach(source IN LISTS sources)
    get_filename_component(here "${source}" DIRECTORY)
    layer_of("${here}" from)
    if(from STREQUAL "")
        list(APPEND upward "${source}: its folder \"${here}\" has no layer")
        continue()
    endif()
    file(STRINGS ${SOURCE_DIR}/${source} includes REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"]")
    foreach(line IN LISTS includes)
        string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*([<\"])([^>\"]*)[>\"].*" "\\1\\2" header "${line}")
        string(SUBSTRING "${header}" 0 1 quote)
        string(SUBSTRING "${header}" 1 -1 header)
        if(quote STREQUAL "<")
            if(header MATCHES "^Q" AND from IN_LIST SALVORA_WITHOUT_QT)
                list(APPEND upward "${source}: includes <${header}>, Qt in ${from}")
            endif()
            continue()
        endif()
        set(to "")
        if(header MATCHES "\\.moc$")
            continue()
        elseif(header MATCHES "^ui_[^/]*\\.h$")
            # The interface files' generated headers belong to the widgets.
            set(to ui)
        elseif(header MATCHES "/")
            get_filename_component(dir "${header}" DIRECTORY)
            layer_of("${dir}" to)
        elseif(EXISTS ${SOURCE_DIR}/${here}/${header})
            continue() # beside the including file
        else()
            foreach(lib IN LISTS SALVORA_BARE_NAME_LIBRARIES)
                if(EXISTS ${SOURCE_DIR}/${lib}/${header})
                    set(to ${lib})
                    break()
                endif()
            endforeach()
        endif()
        if(to STREQUAL "")
            list(APPEND upward "${source}: includes \"${header}\" from a folder without a layer")
        elseif(NOT to IN_LIST may_${from})
            if(from IN_LIST may_${to})
                list(APPEND upward "${source}: includes \"${header}\", a layer above ${from}")
            else()
                list(APPEND upward "${source}: includes \"${header}\", which ${from} may not reach")
            endif()
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
