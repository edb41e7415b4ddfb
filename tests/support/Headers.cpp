// Nothing but what every test includes: see CMakeLists.txt.
