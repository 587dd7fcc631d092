// Serial day numbers of the 1900 date system and back, including the fictitious 29 February
// 1900 (serial 60) that the file formats keep. Months and days out of range run on through the
// formula; callers that need them normalised do so before.
#pragma once
#include <cstdint>

constexpr int32_t Date1904Offset = 1462;  // serial of 1 January 1904 in the 1900 system

int32_t DateToSerial(int32_t year, int32_t month, int32_t day);
void SerialToDate(int32_t serial, int32_t* year, int32_t* month, int32_t* day);
