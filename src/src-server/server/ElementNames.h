#pragma once

// The words of requests and responses. Those that select nodes also stand with the prefix that an XPath
// expression needs.
namespace halvern::morvane::elementNames {

inline constexpr char SELECTION_PREFIX[] = "mv";

inline constexpr char MORVANE[] = "morvane";
inline constexpr char TEXTS[] = "texts";
inline constexpr char TEXT[] = "text";
inline constexpr char TEXT_BASE64[] = "textBase64";
inline constexpr char READ_CALLS[] = "readCalls";
inline constexpr char WRITE_CALLS[] = "writeCalls";

inline constexpr char CLASSIFY[] = "classify";
inline constexpr char CLASSIFY_KEYWORDS[] = "classifyKeywords";
inline constexpr char GET_INFORMATION[] = "getInformation";
inline constexpr char CREATE[] = "create";
inline constexpr char REMOVE[] = "remove";
inline constexpr char ADD_CLASS[] = "addClass";
inline constexpr char REMOVE_CLASS[] = "removeClass";
inline constexpr char TRAIN[] = "train";
inline constexpr char UNTRAIN[] = "untrain";

inline constexpr char VERSION[] = "version";
inline constexpr char ID[] = "id";
inline constexpr char TEXT_ID[] = "textId";
inline constexpr char CLASS_NAME[] = "className";
inline constexpr char CLASSIFIER_NAME[] = "classifierName";
inline constexpr char MAX_SIZE[] = "maxSize";
inline constexpr char SUCCESS[] = "success";
inline constexpr char STATUS_CODE[] = "statusCode";
inline constexpr char TEXT_COVERAGE[] = "textCoverage";
inline constexpr char PROBABILITY[] = "p";

inline constexpr char MV_MORVANE[] = "mv:morvane";
inline constexpr char MV_TEXTS[] = "mv:texts";
inline constexpr char MV_TEXT[] = "mv:text";
inline constexpr char MV_TEXT_BASE64[] = "mv:textBase64";
inline constexpr char MV_READ_CALLS[] = "mv:readCalls";
inline constexpr char MV_WRITE_CALLS[] = "mv:writeCalls";
inline constexpr char MV_STATUS[] = "mv:status";
inline constexpr char MV_CLASSIFICATION[] = "mv:classification";
inline constexpr char MV_CLASS[] = "mv:class";
inline constexpr char MV_KEYWORDS[] = "mv:keywords";
inline constexpr char MV_CLASSES[] = "mv:classes";
inline constexpr char MV_CLASS_INFORMATION[] = "mv:classInformation";
inline constexpr char MV_UNIQUE_FEATURES[] = "mv:uniqueFeatures";
inline constexpr char MV_TOTAL_COUNT[] = "mv:totalCount";

}  // namespace halvern::morvane::elementNames
