// The Java fields that the bridge reads and writes, resolved once.
#pragma once

#include <jni.h>

#include <span>

#pragma GCC visibility push(hidden)

// TmqKciReport
extern jfieldID oopFid, classOopFid, classHistoryOopFid, objTypeFid, namedSizeFid, indexedSizeFid, isCollectionFid,
    isStringFid, isDBStringFid, valueTypeFid, int1Fid, int2Fid, longFid, doubleFid, bytesFid, longsFid, stringFid;
// TmqKciException
extern jfieldID numberFid, messageFid, categoryFid, contextFid, fatalFid, argCountFid, argsFid;
// TmqKciCacheStats
extern jfieldID typeFid, nameFid, pidFid, sidFid, stats32Fid, stats64Fid;

struct JavaField {
    jfieldID* fid;
    const char* name;
    const char* signature;
};

constexpr char reportClassName[] = "com/kestrune/tmqkci/TmqKciReport";
constexpr char exceptionClassName[] = "com/kestrune/tmqkci/TmqKciException";
constexpr char cacheStatsClassName[] = "com/kestrune/tmqkci/TmqKciCacheStats";

// In the order in which _initialize resolves them.
extern const std::span<const JavaField> reportFields;
enum ExceptionField { numberField, messageField, categoryField, contextField, fatalField, argCountField, argsField };
extern const std::span<const JavaField> exceptionFields; // by ExceptionField
extern const std::span<const JavaField> cacheStatsFields;

#pragma GCC visibility pop
