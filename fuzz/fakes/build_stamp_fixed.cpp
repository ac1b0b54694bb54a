// The banner's build time, fixed so that runs are repeatable.
extern const char* const kBuildStamp;
const char* const kBuildStamp = "Sat Apr 11 16:19:37 2020";
