#include <insolate/solar/time_zone_list.h>

namespace insolate {

const NamedTimeZone timeZoneList[32] = {
    {"-12:00 Kwajalein", -12.0f},  {"-11:00 Samoa", -11.0f},
    {"-10:00 Honolulu", -10.0f},   {"-9:00 Anchorage", -9.0f},
    {"-8:00 Los Angeles", -8.0f},  {"-7:00 Denver", -7.0f},
    {"-6:00 Chicago", -6.0f},      {"-5:00 New York", -5.0f},
    {"-4:00 Carakas", -4.0f},      {"-3:30 Newfoundland", -3.5f},
    {"-3:00 Buenos Aires", -3.0f}, {"-2:00 Mid-Atlantic", -2.0f},
    {"-1:00 Azores", -1.0f},       {"GMT London", -0.0f},
    {"+1:00 Paris", 1.0f},         {"+2:00 Cairo", 2.0f},
    {"+3:00 Jeddah", 3.0f},        {"+3:30 Tehran", 3.5f},
    {"+4:00 Dubai", 4.0f},         {"+4:30 Kabel", 4.5f},
    {"+5:00 Karachi", 5.0f},       {"+5:30 Delhi", 5.5f},
    {"+6:00 Dhaka", 6.0f},         {"+6:30 Rangoon", 6.5f},
    {"+7:00 Bangkok", 7.0f},       {"+8:00 Perth", 8.0f},
    {"+9:00 Tokyo", 9.0f},         {"+9:30 Adelaide", 9.5f},
    {"+10:00 Sydney", 10.0f},      {"+11:00 Noumea", 11.0f},
    {"+12:00 Aukland", 12.0f},     {"", 0.0f},
};

} // namespace insolate
