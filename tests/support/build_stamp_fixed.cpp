// Test programs print the banner with a fixed stamp so transcripts can be compared whole.
extern const char* const kBuildStamp;
const char* const kBuildStamp = "Sat Apr 11 16:19:37 2020";
