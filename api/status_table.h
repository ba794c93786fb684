/* Tintra3: every status code the library knows, in one list.
 *
 * X(NAME, code, topLevelCode, layer, meaning) for each code:
 *   topLevelCode  what the top level reports for it (top-level rows: the code itself)
 *   layer         the interface layers that can report it; "" for a code that
 *                 nothing produces and only the top-level mapping recognises
 *   meaning       one line for people
 * The enum of exports.h, the lower layers' constants, the top-level mapping,
 * the command-line tool's messages and the README table all come from here.
 * Valid C99 and C++; included by exports.h. */
#ifndef TINTRA3_STATUS_TABLE_H
#define TINTRA3_STATUS_TABLE_H

#define TINTRA3_STATUS_TABLE(X)                                                                              \
    X(OK, 0, 0, "all", "success")                                                                            \
    X(NO_MEMORY, 1000, 1190, "toolbox, selector",                                                            \
      "out of memory: the matcher or the transform record could not be allocated")                           \
    X(NOT_IN_PLACE, 1001, 1190, "selector",                                                                  \
      "in-place conversion impossible: channel counts or bit depths differ")                                  \
    X(BUFFER_TOO_SMALL, 1002, 1100, "selector", "the pixel block does not fit the buffer size")              \
    X(BUFFER_ERROR, 1003, 1110, "", "buffer error")                                                          \
    X(TRANSFORM_STATUS_2, 2000, 1490, "", "the profiles cannot be combined (transform status 2)")            \
    X(TRANSFORM_STATUS_3, 2010, 1490, "", "the profiles cannot be combined (transform status 3)")            \
    X(BAD_BITS_IN, 2020, 1200, "matcher, selector", "input bit depth not supported (8, 10, 12 or 16)")       \
    X(BAD_BITS_OUT, 2021, 1210, "matcher", "output bit depth not supported (8 or 16)")                      \
    X(BAD_LAYOUT, 2030, 1290, "matcher, selector", "sample layout not supported (0, 1 or 2)")               \
    X(BAD_METHOD, 2040, 1310, "matcher, selector",                                                          \
      "matching method not supported (0 or 1), or a tone-curve side other than 0 or 1 with method 0")        \
    X(BAD_INTENT, 2050, 1300, "selector", "rendering intent not supported (above 3)")                       \
    X(CANNOT_OPEN, 3000, 1490, "selector",                                                                   \
      "the profile cannot be opened, or its header or tag directory cannot be read")                          \
    X(NOT_ICC, 3001, 1490, "selector",                                                                       \
      "not an ICC profile: its header lacks the 'acsp' signature")                                           \
    X(INTERNAL, 4000, 1500, "", "internal error")                                                            \
    X(BUILD_FAILED, 5000, 1600, "matcher, selector", "the transform could not be built")                     \
    X(BAD_ARGUMENT, 5001, 1390, "toolbox", "an argument is null or out of range")                            \
    X(TOP_BUFFER_TOO_SMALL, 1100, 1100, "top level",                                                         \
      "the pixel block does not fit the buffer size (a handle set up with a smaller buffer)")                 \
    X(TOP_BUFFER_ERROR, 1110, 1110, "", "buffer error")                                                      \
    X(TOP_NO_MEMORY, 1190, 1190, "top level", "out of memory, or in-place conversion impossible")            \
    X(TOP_SOURCE_SPACE, 1200, 1200, "top level",                                                             \
      "source colour space not accepted, or input bit depth not supported")                                   \
    X(TOP_DESTINATION_SPACE, 1210, 1210, "top level",                                                        \
      "destination colour space not accepted, or output bit depth not supported")                             \
    X(TOP_LAYOUT, 1290, 1290, "", "sample layout not supported")                                             \
    X(TOP_INTENT, 1300, 1300, "", "rendering intent not supported")                                          \
    X(TOP_METHOD, 1310, 1310, "", "matching method not supported")                                           \
    X(TOP_ARGUMENT, 1390, 1390, "top level", "an argument is null or out of range")                          \
    X(TOP_SOURCE_OPEN, 1400, 1400, "top level", "source profile cannot be opened")                           \
    X(TOP_SOURCE_CLASS, 1401, 1401, "top level", "source profile device class not accepted")                 \
    X(TOP_SOURCE_FOLDER, 1402, 1402, "top level", "source profile not in the folder registered for its class") \
    X(TOP_SOURCE_PATH, 1403, 1403, "top level", "source path missing, or out of memory")                     \
    X(TOP_DESTINATION_OPEN, 1410, 1410, "top level", "destination profile cannot be opened")                 \
    X(TOP_DESTINATION_CLASS, 1411, 1411, "top level", "destination profile device class not accepted")       \
    X(TOP_DESTINATION_FOLDER, 1412, 1412, "top level",                                                       \
      "destination profile not in the folder registered for its class")                                       \
    X(TOP_DESTINATION_PATH, 1413, 1413, "top level", "destination path missing, or out of memory")           \
    X(TOP_PROFILE, 1490, 1490, "top level", "a profile cannot be read or used")                              \
    X(TOP_INTERNAL, 1500, 1500, "", "internal error")                                                        \
    X(TOP_BUILD_FAILED, 1600, 1600, "top level", "the transform could not be built")

#endif /* TINTRA3_STATUS_TABLE_H */
