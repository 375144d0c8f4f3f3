// The first guess of the mains frequency from the time zone: zones of 50 Hz
// and 60 Hz countries, neighbours on different grids, old names, and the
// cases that must give no guess.
#include "flicker_zone_mains.h"

#include "case_names.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

struct ZoneCase {
  const char* name;     // of the time zone
  const char* country;  // null: none
  int hz;               // 0: no guess
};

CASE_PRINTS_ITS_NAME(ZoneCase)

class ZoneMainsTest : public ::testing::TestWithParam<ZoneCase> {};

TEST_P(ZoneMainsTest, GuessesTheCountrysFrequency) {
  const ZoneCase& c = GetParam();
  const char* country = flicker_country_of_time_zone(c.name);
  EXPECT_EQ(country == nullptr ? std::string("-") : std::string(country),
            c.country == nullptr ? std::string("-") : std::string(c.country));
  EXPECT_EQ(flicker_mains_hz_of_time_zone(c.name), c.hz);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ZoneMainsTest,
    ::testing::Values(
        // 50 Hz and 60 Hz countries on every continent.
        ZoneCase{"Europe/Berlin", "DE", 50}, ZoneCase{"Europe/London", "GB", 50},
        ZoneCase{"Africa/Lagos", "NG", 50}, ZoneCase{"Asia/Kolkata", "IN", 50},
        ZoneCase{"Australia/Sydney", "AU", 50}, ZoneCase{"America/New_York", "US", 60},
        ZoneCase{"America/Toronto", "CA", 60}, ZoneCase{"America/Mexico_City", "MX", 60},
        ZoneCase{"America/Sao_Paulo", "BR", 60}, ZoneCase{"Asia/Seoul", "KR", 60},
        ZoneCase{"Asia/Taipei", "TW", 60}, ZoneCase{"Asia/Manila", "PH", 60},
        ZoneCase{"Asia/Riyadh", "SA", 60},
        // Neighbours on different grids: the first and last of the table's
        // names, Argentina beside Brazil, Samoa beside American Samoa, and
        // Caribbean zones that share one clock but not one grid.
        ZoneCase{"Africa/Abidjan", "CI", 50}, ZoneCase{"Pacific/Wallis", "WF", 50},
        ZoneCase{"America/Argentina/Buenos_Aires", "AR", 50}, ZoneCase{"Pacific/Apia", "WS", 50},
        ZoneCase{"Pacific/Pago_Pago", "AS", 60}, ZoneCase{"America/Curacao", "CW", 50},
        ZoneCase{"America/Aruba", "AW", 60}, ZoneCase{"America/Dominica", "DM", 50},
        ZoneCase{"America/Antigua", "AG", 60},
        // Old names reach their country, also where the zone they link to
        // lies in another one (Micronesia's Truk keeps 60 Hz).
        ZoneCase{"Asia/Calcutta", "IN", 50}, ZoneCase{"US/Pacific", "US", 60},
        ZoneCase{"Pacific/Truk", "FM", 60}, ZoneCase{"Iceland", "IS", 50},
        // Both grids in one zone or country: no guess.
        ZoneCase{"Asia/Tokyo", "JP", 0}, ZoneCase{"Japan", "JP", 0},
        ZoneCase{"America/Kralendijk", "BQ", 0}, ZoneCase{"Antarctica/McMurdo", "AQ", 0},
        // No country, not a zone, not quite a zone's name, nothing.
        ZoneCase{"UTC", nullptr, 0}, ZoneCase{"Etc/GMT+5", nullptr, 0},
        ZoneCase{"CET-1CEST", nullptr, 0}, ZoneCase{"europe/berlin", nullptr, 0},
        ZoneCase{"Europe/Berlin/", nullptr, 0}, ZoneCase{"", nullptr, 0},
        ZoneCase{nullptr, nullptr, 0}));

}  // namespace
