# Options shared by every target the project builds: strict warnings as errors for
# our own code (Qt and libarchive come in as system headers through their imported
# targets), strict Qt string handling, and the optional sanitizers.
add_library(draizu_compile_options INTERFACE)
target_compile_options(draizu_compile_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wcast-align
    -Woverloaded-virtual -Wformat=2 -Werror)
target_compile_definitions(draizu_compile_options INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING
    QT_USE_QSTRINGBUILDER QT_NO_KEYWORDS QT_NO_FOREACH QT_NO_CAST_FROM_BYTEARRAY)

if(DRAIZU_SANITIZE)
    target_compile_options(draizu_compile_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(draizu_compile_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all)
endif()
