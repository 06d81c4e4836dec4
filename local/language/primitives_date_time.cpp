// DateTime.

// The C library's 64-bit time: the other one ends in January 2038.
#define _FILE_OFFSET_BITS 64
#define _TIME_BITS 64
#include "language/date_time.h"
#include "language/number.h"
#include "language/primitives.h"
#include "language/text.h"

#include <chrono>
#include <cstdio>
#include <ctime>

namespace local {

namespace {

using Arguments = std::span<const Oop>;
using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month_day;

constexpr int32_t millisecondsPerDay = 24 * 60 * 60 * 1000;

int32_t dayCountOf(int32_t yearNumber) {
    return year(yearNumber).is_leap() ? 366 : 365;
}

sys_days firstDayOf(int32_t yearNumber) {
    return sys_days(year(yearNumber) / 1 / 1);
}

int64_t sinceEpoch(const KciDateTimeSType& value) {
    auto day = firstDayOf(value.year) + days(value.dayOfYear - 1);
    return int64_t{day.time_since_epoch().count()} * millisecondsPerDay + value.milliseconds;
}

Oop fromEpoch(const View& view, Oop cls, int64_t milliseconds) {
    int64_t day = milliseconds / millisecondsPerDay - (milliseconds % millisecondsPerDay < 0 ? 1 : 0);
    constexpr int64_t farthestDay = 4000000; // beyond it lies no year that is valid
    if (day < -farthestDay || day > farthestDay) {
        throw Failure(ErrorNumber::DateTimeOutOfRange, "the year is not between 1 and 9999", {cls});
    }
    sys_days date{days(static_cast<int32_t>(day))};
    int32_t yearNumber = static_cast<int>(year_month_day(date).year());
    auto dayOfYear = static_cast<int32_t>((date - firstDayOf(yearNumber)).count() + 1);
    auto rest = static_cast<int32_t>(milliseconds - day * millisecondsPerDay);
    return newDateTime(view, cls, {yearNumber, dayOfYear, rest, nil});
}

year_month_day dateOf(const KciDateTimeSType& value) {
    return year_month_day(firstDayOf(value.year) + days(value.dayOfYear - 1));
}

KciDateTimeSType needDateTime(const View& view, Oop oop) {
    if (!kernel::isKindOf(view, oop, kernel::DateTime)) {
        throw Failure(ErrorNumber::BadArgument, brief(view, oop) + " is not a date-time", {oop});
    }
    return dateTimeOf(view, oop);
}

Oop now(Interpreter& interpreter, Oop self, Arguments) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return fromEpoch(interpreter.view, self, int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000);
}

Oop make(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    auto part = [&](size_t i) { return needIntegerIn(view, arguments[i], INT32_MIN, INT32_MAX); };
    return newDateTime(view, self, {part(0), part(1), part(2), nil});
}

Oop makeDate(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    int32_t yearNumber = needIntegerIn(view, arguments[0], INT32_MIN, INT32_MAX);
    auto month = static_cast<unsigned>(needIntegerIn(view, arguments[1], 0, 99));
    auto day = static_cast<unsigned>(needIntegerIn(view, arguments[2], 0, 99));
    year_month_day date{year(yearNumber), std::chrono::month(month), std::chrono::day(day)};
    if (yearNumber < 1 || yearNumber > 9999 || !date.ok()) {
        throw Failure(ErrorNumber::DateTimeOutOfRange,
                      "year " + std::to_string(yearNumber) + ", month " + std::to_string(month) + ", day " +
                          std::to_string(day) + " is not a date",
                      {arguments[0], arguments[1], arguments[2]});
    }
    auto dayOfYear = static_cast<int32_t>((sys_days(date) - firstDayOf(yearNumber)).count() + 1);
    return newDateTime(view, self, {yearNumber, dayOfYear, 0, nil});
}

template <uint32_t index>
Oop part(Interpreter& interpreter, Oop self, Arguments) {
    return interpreter.view.slot(self, index);
}

Oop month(Interpreter& interpreter, Oop self, Arguments) {
    auto value = static_cast<unsigned>(dateOf(needDateTime(interpreter.view, self)).month());
    return smallIntegerOop(static_cast<int32_t>(value));
}

Oop dayOfMonth(Interpreter& interpreter, Oop self, Arguments) {
    auto value = static_cast<unsigned>(dateOf(needDateTime(interpreter.view, self)).day());
    return smallIntegerOop(static_cast<int32_t>(value));
}

Oop addMilliseconds(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    int64_t sum = 0;
    if (__builtin_add_overflow(sinceEpoch(needDateTime(view, self)), needInteger(view, arguments[0]), &sum)) {
        throw Failure(ErrorNumber::DateTimeOutOfRange, "the year is not between 1 and 9999", {self, arguments[0]});
    }
    return fromEpoch(view, view.classOf(self), sum);
}

Oop millisecondsSince(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    return newInteger(view, sinceEpoch(needDateTime(view, self)) - sinceEpoch(needDateTime(view, arguments[0])));
}

Oop less(Interpreter& interpreter, Oop self, Arguments arguments) {
    const View& view = interpreter.view;
    return booleanOop(sinceEpoch(needDateTime(view, self)) < sinceEpoch(needDateTime(view, arguments[0])));
}

Oop print(Interpreter& interpreter, Oop self, Arguments) {
    KciDateTimeSType value = needDateTime(interpreter.view, self);
    year_month_day date = dateOf(value);
    int32_t seconds = value.milliseconds / 1000;
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d.%03d", value.year,
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), seconds / 3600,
                  seconds / 60 % 60, seconds % 60, value.milliseconds % 1000);
    return newString(interpreter.view, text);
}

constexpr Primitive rows[] = {
    {kernel::DateTime, true, "now", now},
    {kernel::DateTime, true, "year:dayOfYear:milliseconds:", make},
    {kernel::DateTime, true, "year:month:day:", makeDate},
    {kernel::DateTime, false, "year", part<kernel::date_time_slot::year>},
    {kernel::DateTime, false, "dayOfYear", part<kernel::date_time_slot::dayOfYear>},
    {kernel::DateTime, false, "milliseconds", part<kernel::date_time_slot::milliseconds>},
    {kernel::DateTime, false, "month", month},
    {kernel::DateTime, false, "day", dayOfMonth},
    {kernel::DateTime, false, "addMilliseconds:", addMilliseconds},
    {kernel::DateTime, false, "millisecondsSince:", millisecondsSince},
    {kernel::DateTime, false, "<", less},
    {kernel::DateTime, false, "printString", print},
};

} // namespace

Oop newDateTime(const View& view, Oop cls, const KciDateTimeSType& value) {
    bool validYear = value.year >= 1 && value.year <= 9999;
    if (!validYear || value.dayOfYear < 1 || value.dayOfYear > dayCountOf(value.year) || value.milliseconds < 0 ||
        value.milliseconds >= millisecondsPerDay) {
        throw Failure(
            ErrorNumber::DateTimeOutOfRange,
            "year " + std::to_string(value.year) + ", day " + std::to_string(value.dayOfYear) + ", milliseconds " +
                std::to_string(value.milliseconds) + " is not a date-time",
            {newInteger(view, value.year), newInteger(view, value.dayOfYear), newInteger(view, value.milliseconds)});
    }
    Oop oop = kernel::newInstance(view, cls, 0);
    view.setSlot(oop, kernel::date_time_slot::year, smallIntegerOop(value.year));
    view.setSlot(oop, kernel::date_time_slot::dayOfYear, smallIntegerOop(value.dayOfYear));
    view.setSlot(oop, kernel::date_time_slot::milliseconds, smallIntegerOop(value.milliseconds));
    view.setSlot(oop, kernel::date_time_slot::timeZone, value.timeZone);
    return oop;
}

// What was stored into the object by other means may be no date-time.
KciDateTimeSType dateTimeOf(const View& view, Oop oop) {
    namespace slot = kernel::date_time_slot;
    auto partOf = [&](uint32_t index, int32_t low, int32_t high) {
        Oop value = view.slot(oop, index);
        if (!isSmallInteger(value) || smallIntegerValue(value) < low || smallIntegerValue(value) > high) {
            throw Failure(ErrorNumber::CorruptObject, "this date-time holds no valid date", {oop});
        }
        return smallIntegerValue(value);
    };
    int32_t yearNumber = partOf(slot::year, 1, 9999);
    return {yearNumber, partOf(slot::dayOfYear, 1, dayCountOf(yearNumber)),
            partOf(slot::milliseconds, 0, millisecondsPerDay - 1), view.slot(oop, slot::timeZone)};
}

std::span<const Primitive> dateTimePrimitives() {
    return rows;
}

} // namespace local
