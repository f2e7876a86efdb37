# A program outside: it sees the exported headers, and of the shared library what that does not hide.
set_property(TARGET ${name} PROPERTY LINK_LIBRARIES
    kestrelwood_shared GTest::gmock GTest::gtest GTest::gtest_main Threads::Threads)
