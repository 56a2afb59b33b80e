# The identity of the update channel, compiled into the broker; see docs/update-channel.md.
#
# By default no server can be reached (names under .invalid never resolve, RFC 6761), and the key is one
# that this build folder made for itself: a trial, which is never released (packaging/release/package.py). A server
# that can be reached needs the publisher's key, for with a key that is thrown away all brokers would refuse every
# update for ever.
set(VEXTRA_UPDATE_ORIGIN "https://updates.vextra.invalid" CACHE STRING "Origin of the update channel: https://host[:port]")
set(VEXTRA_CHANNEL_PUBLIC_KEY "" CACHE FILEPATH "PEM file with the channel's P-256 public key; empty: a throw-away pair")

if(NOT VEXTRA_UPDATE_ORIGIN MATCHES "^https://[a-z0-9]([a-z0-9.-]*[a-z0-9])?(:[1-9][0-9]*)?$")
    message(FATAL_ERROR "VEXTRA_UPDATE_ORIGIN is not an https origin without a path: ${VEXTRA_UPDATE_ORIGIN}")
endif()

set(throw_away_name throw-away-channel.public.pem)
set(channel_key_file ${VEXTRA_CHANNEL_PUBLIC_KEY})
get_filename_component(channel_key_name "${channel_key_file}" NAME)
set(VEXTRA_CHANNEL_KIND release)
if(NOT channel_key_file OR channel_key_name STREQUAL throw_away_name)
    set(VEXTRA_CHANNEL_KIND trial)
endif()
if(VEXTRA_UPDATE_ORIGIN MATCHES "^https://([a-z0-9.-]+[.])?invalid(:[0-9]+)?$")
    set(VEXTRA_CHANNEL_KIND trial)
elseif(VEXTRA_CHANNEL_KIND STREQUAL trial)
    message(FATAL_ERROR "VEXTRA_UPDATE_ORIGIN names a real server, ${VEXTRA_UPDATE_ORIGIN}, and "
        "VEXTRA_CHANNEL_PUBLIC_KEY names no publisher's key: no broker of this build could ever be updated")
endif()

if(NOT channel_key_file)
    set(channel_key_file ${CMAKE_BINARY_DIR}/${throw_away_name})
    if(NOT EXISTS ${channel_key_file})
        find_program(VEXTRA_OPENSSL openssl DOC "Makes the throw-away pair")
        if(NOT VEXTRA_OPENSSL)
            message(FATAL_ERROR "Without VEXTRA_CHANNEL_PUBLIC_KEY the build makes a pair of its own with openssl: install it")
        endif()
        set(throw_away_private ${CMAKE_BINARY_DIR}/throw-away-channel.private.pem)
        execute_process(COMMAND ${VEXTRA_OPENSSL} genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256
            -out ${throw_away_private} OUTPUT_QUIET ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
        execute_process(COMMAND ${VEXTRA_OPENSSL} pkey -in ${throw_away_private} -pubout -out ${channel_key_file}
            COMMAND_ERROR_IS_FATAL ANY)
    endif()
endif()
file(READ ${channel_key_file} VEXTRA_CHANNEL_PUBLIC_KEY_PEM)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${channel_key_file})

set(channel_source ${CMAKE_BINARY_DIR}/generated/built_in_channel.cpp)
configure_file(src/update/built_in_channel.cpp.in ${channel_source} @ONLY)
add_library(vextra_channel STATIC ${channel_source})
target_link_libraries(vextra_channel PUBLIC vextra_options)
