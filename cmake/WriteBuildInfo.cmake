# Writes BuildInfo.h: the version and the build time that katd prints when it starts.
# string(TIMESTAMP) takes SOURCE_DATE_EPOCH into account.
string(TIMESTAMP build_time "%Y-%m-%d %H:%M:%S" UTC)
file(WRITE "${OUTPUT}"
    "#define KATD_VERSION \"${VERSION}\"\n#define KATD_BUILD_TIME \"${build_time}\"\n")
