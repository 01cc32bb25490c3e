# Language, warnings, sanitizers and reproducible builds, for everything built here. Flags that only the Bundle needs
# are set with its target.
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_C_FLAGS_RELEASE "-O2")
set(CMAKE_CXX_FLAGS_RELEASE "-O2")

# One folder for the libraries, so that the path from one to the next is the same in every build.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

set(CMAKE_COMPILE_WARNING_AS_ERROR ON)
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)

# No folder of the building machine may get into a file that is built. If two prefixes match, the later one counts.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)

set(EPM_NO_UNDEFINED -Wl,--no-undefined)
if(EPM_SANITIZE)
    add_compile_options(-fsanitize=${EPM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${EPM_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
        # clang puts its sanitizer runtime into the program only, and a library finds it there.
        set(EPM_NO_UNDEFINED "")
        # Whoever walks all types calls their operations through one pointer type; in C's calling convention that holds.
        # Programs in C are linked without the part of the runtime that checks the types of C++ objects.
        add_compile_options(-fno-sanitize=function,vptr)
    endif()
endif()
