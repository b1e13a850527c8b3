# find_package(Tonewell): what a consumer of the sound spectrum needs.
#
# Tonewell_INTERFACE_FILE: the interface definition, for qt5_generate_repc(... REPLICA).
get_filename_component(Tonewell_INTERFACE_FILE "${CMAKE_CURRENT_LIST_DIR}/../commoninterface.rep"
    ABSOLUTE)
if(NOT EXISTS "${Tonewell_INTERFACE_FILE}")
    set(Tonewell_FOUND FALSE)
    set(Tonewell_NOT_FOUND_MESSAGE "${Tonewell_INTERFACE_FILE} is missing")
endif()
