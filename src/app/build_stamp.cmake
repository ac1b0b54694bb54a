# Writes the build time in the C library's asctime form ("Sat Apr 11 16:19:37 2020").
string(TIMESTAMP day "%d")
string(TIMESTAMP head "%a %b")
string(TIMESTAMP tail "%H:%M:%S %Y")
string(REGEX REPLACE "^0" " " day "${day}")
file(WRITE ${OUT}.tmp "extern const char* const kBuildStamp;\nconst char* const kBuildStamp = \"${head} ${day} ${tail}\";\n")
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different ${OUT}.tmp ${OUT})
