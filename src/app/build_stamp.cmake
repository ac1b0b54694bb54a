# Writes the build time in the C library's asctime form ("Sat Apr 11 16:19:37 2020").
# With SOURCE_DATE_EPOCH set (`make package` sets the commit's date) the time is
# that one, in UTC, so two builds of one commit stamp the same bytes wherever
# and whenever they run; string(TIMESTAMP) reads the variable itself.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(utc UTC)
endif()
string(TIMESTAMP day "%d" ${utc})
string(TIMESTAMP head "%a %b" ${utc})
string(TIMESTAMP tail "%H:%M:%S %Y" ${utc})
string(REGEX REPLACE "^0" " " day "${day}")
file(WRITE ${OUT}.tmp "extern const char* const kBuildStamp;\nconst char* const kBuildStamp = \"${head} ${day} ${tail}\";\n")
execute_process(COMMAND ${CMAKE_COMMAND} -E copy_if_different ${OUT}.tmp ${OUT})
