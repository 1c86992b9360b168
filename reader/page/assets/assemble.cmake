# Puts template.html together with the scripts and styles it names, and splits it where the report
# goes: cmake -DOUTPUT=FOLDER -DLIBRARY=FOLDER -P assemble.cmake writes OUTPUT/page_begin.html
# and OUTPUT/page_end.html. A hash of each goes into the Content-Security-Policy, so that a browser runs
# these and nothing else.
cmake_minimum_required(VERSION 3.25)

# The base64 of the file's SHA-256.
function(hash_of file result)
    execute_process(COMMAND sha256sum ${file} COMMAND cut -c1-64 COMMAND tr a-f A-F
        COMMAND basenc --base16 -d COMMAND base64
        OUTPUT_VARIABLE hash OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(${result} "'sha256-${hash}'" PARENT_SCOPE)
endfunction()

file(READ ${CMAKE_CURRENT_LIST_DIR}/template.html page)
foreach(kind script style)
    string(REGEX MATCHALL "<${kind}>@[^@]+@" places "${page}")
    set(hashes "")
    foreach(place ${places})
        string(REGEX REPLACE ".*@(.+)@" "\\1" name "${place}")
        find_file(file ${name} PATHS ${CMAKE_CURRENT_LIST_DIR} ${LIBRARY} REQUIRED NO_DEFAULT_PATH NO_CACHE)
        file(READ ${file} text)
        unset(file)
        # Where the original is only matters to somebody with the library's sources.
        string(REGEX REPLACE "\n(//|/\\*)# sourceMappingURL=[^\n]*" "" text "${text}")
        if(text MATCHES "</(script|style)|<!--")
            message(FATAL_ERROR "${name} holds what would end its element")
        endif()
        file(WRITE ${OUTPUT}/${name} "${text}")
        hash_of(${OUTPUT}/${name} hash)
        list(APPEND hashes "${hash}")
        set(text_of_${name} "${text}")
        list(APPEND names ${name})
    endforeach()
    list(JOIN hashes " " hashes)
    string(REPLACE "@${kind}-hashes@" "${hashes}" page "${page}")
endforeach()

string(FIND "${page}" "@REPORT@" middle)
string(SUBSTRING "${page}" 0 ${middle} begin)
math(EXPR middle "${middle} + 9") # and the newline
string(SUBSTRING "${page}" ${middle} -1 end)
foreach(part begin end)
    foreach(name ${names})
        string(REPLACE "@${name}@" "${text_of_${name}}" ${part} "${${part}}")
    endforeach()
    file(WRITE ${OUTPUT}/page_${part}.html "${${part}}")
endforeach()
