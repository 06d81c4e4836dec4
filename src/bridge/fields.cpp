#include "bridge/fields.h"

jfieldID oopFid, classOopFid, classHistoryOopFid, objTypeFid, namedSizeFid, indexedSizeFid, isCollectionFid,
    isStringFid, isDBStringFid, valueTypeFid, int1Fid, int2Fid, longFid, doubleFid, bytesFid, longsFid, stringFid;
jfieldID numberFid, messageFid, categoryFid, contextFid, fatalFid, argCountFid, argsFid;
jfieldID typeFid, nameFid, pidFid, sidFid, stats32Fid, stats64Fid;

namespace {

constexpr JavaField reportTable[] = {
    {&oopFid, "oop", "J"},
    {&classOopFid, "classOop", "J"},
    {&classHistoryOopFid, "classHistoryOop", "J"},
    {&objTypeFid, "objType", "B"},
    {&namedSizeFid, "namedSize", "I"},
    {&indexedSizeFid, "indexedSize", "J"},
    {&isCollectionFid, "isCollection", "Z"},
    {&isStringFid, "isString", "Z"},
    {&isDBStringFid, "isDBString", "Z"},
    {&valueTypeFid, "valueType", "B"},
    {&int1Fid, "valueInt1", "I"},
    {&int2Fid, "valueInt2", "I"},
    {&longFid, "valueLong", "J"},
    {&doubleFid, "valueDouble", "D"},
    {&bytesFid, "valueBytes", "[B"},
    {&longsFid, "valueLongs", "[J"},
    {&stringFid, "valueString", "Ljava/lang/String;"},
};

constexpr JavaField exceptionTable[] = {
    {&numberFid, "number", "I"},     {&messageFid, "message", "Ljava/lang/String;"},
    {&categoryFid, "category", "J"}, {&contextFid, "context", "J"},
    {&fatalFid, "fatal", "Z"},       {&argCountFid, "argCount", "I"},
    {&argsFid, "args", "[J"},
};

constexpr JavaField cacheStatsTable[] = {
    {&typeFid, "type", "I"}, {&nameFid, "name", "Ljava/lang/String;"}, {&pidFid, "pid", "J"},
    {&sidFid, "sid", "J"},   {&stats32Fid, "stats32", "[I"},           {&stats64Fid, "stats64", "[J"},
};

} // namespace

constinit const std::span<const JavaField> reportFields = reportTable;
constinit const std::span<const JavaField> exceptionFields = exceptionTable;
constinit const std::span<const JavaField> cacheStatsFields = cacheStatsTable;
