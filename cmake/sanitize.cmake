# Everything of a build is instrumented, or nothing: BRISOLT_SANITIZE=address, thread or fuzz.
if(BRISOLT_SANITIZE STREQUAL "address")
    # Not the check of vtables: it asks the host whether memory is there, which tests with a failing host refuse it.
    set(sanitize_flags -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all)
elseif(BRISOLT_SANITIZE STREQUAL "thread")
    set(sanitize_flags -fsanitize=thread)
elseif(BRISOLT_SANITIZE STREQUAL "fuzz")
    set(sanitize_flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
    # What the library needs of the sanitizer, a program in C would not bring.
    add_link_options("$<$<LINK_LANGUAGE:C>:-fsanitize-link-c++-runtime;-lstdc++>")
elseif(BRISOLT_SANITIZE)
    message(FATAL_ERROR "BRISOLT_SANITIZE is address, thread, fuzz or empty, not \"${BRISOLT_SANITIZE}\"")
endif()
if(BRISOLT_SANITIZE)
    add_compile_options(${sanitize_flags} -fno-omit-frame-pointer)
    add_link_options(${sanitize_flags})
endif()
