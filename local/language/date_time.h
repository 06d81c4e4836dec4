// Date-times: year, day of the year and milliseconds of the day, without a time zone of their own (UTC by custom).
#pragma once

#include "kcirecords.h"
#include "language/kernel.h"

namespace local {

// Throws a Failure for a day or a time that does not exist; years run from 1 to 9999.
Oop newDateTime(const View& view, Oop cls, const KciDateTimeSType& value);
KciDateTimeSType dateTimeOf(const View& view, Oop oop);

} // namespace local
