# The libraries that libvex links; none of them shows in a public type except OpenSSL's digest states.
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
find_package(CURL REQUIRED)
find_package(Threads REQUIRED)

find_path(LZO_INCLUDE_DIR lzo/lzo1x.h REQUIRED)
find_library(LZO_LIBRARY lzo2 REQUIRED)
if(NOT TARGET vex_lzo)
    add_library(vex_lzo INTERFACE IMPORTED)
    target_include_directories(vex_lzo INTERFACE ${LZO_INCLUDE_DIR})
    target_link_libraries(vex_lzo INTERFACE ${LZO_LIBRARY})
endif()
