#include "flicker_zone_mains.h"

#include <cstring>

namespace {

struct ZoneCountry {
  const char* zone;
  const char* country;
};

// Every zone name of the IANA time zone database with a country, sorted.
const ZoneCountry kZones[] = {
#include "flicker_zone_countries.inc"
};

// Countries (and territories) whose mains run at 60 Hz, from the IEC's
// World Plugs list; every other country with a zone runs at 50 Hz.
const char* const kSixtyHz[] = {
    "AG",  // Antigua and Barbuda
    "AI",  // Anguilla
    "AS",  // American Samoa
    "AW",  // Aruba
    "BL",  // Saint Barthelemy
    "BM",  // Bermuda
    "BR",  // Brazil
    "BS",  // Bahamas
    "BZ",  // Belize
    "CA",  // Canada
    "CO",  // Colombia
    "CR",  // Costa Rica
    "CU",  // Cuba
    "DO",  // Dominican Republic
    "EC",  // Ecuador
    "FM",  // Micronesia
    "GT",  // Guatemala
    "GU",  // Guam
    "HN",  // Honduras
    "HT",  // Haiti
    "KN",  // Saint Kitts and Nevis
    "KP",  // Korea, North
    "KR",  // Korea, South
    "KY",  // Cayman Islands
    "MF",  // Saint Martin (French part)
    "MH",  // Marshall Islands
    "MP",  // Northern Mariana Islands
    "MS",  // Montserrat
    "MX",  // Mexico
    "NI",  // Nicaragua
    "PA",  // Panama
    "PE",  // Peru
    "PF",  // French Polynesia
    "PH",  // Philippines
    "PR",  // Puerto Rico
    "PW",  // Palau
    "SA",  // Saudi Arabia
    "SR",  // Suriname
    "SV",  // El Salvador
    "SX",  // Sint Maarten
    "TC",  // Turks and Caicos Islands
    "TT",  // Trinidad and Tobago
    "TW",  // Taiwan
    "UM",  // US minor outlying islands
    "US",  // United States
    "VE",  // Venezuela
    "VG",  // Virgin Islands (British)
    "VI",  // Virgin Islands (US)
};

// No guess: grids at both frequencies in one country or zone, or no public
// grid at all.
const char* const kNoGuess[] = {
    "AQ",  // Antarctica: stations run their own generators
    "BQ",  // Caribbean Netherlands: Bonaire 50 Hz, Saba and Sint Eustatius 60 Hz
    "GY",  // Guyana: 50 Hz and 60 Hz networks
    "JP",  // Japan: 50 Hz in the east, 60 Hz in the west, one time zone
    "LR",  // Liberia: 50 Hz and 60 Hz supplies
};

bool listed(const char* country, const char* const* list, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    if (strcmp(country, list[i]) == 0) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" {

const char* flicker_country_of_time_zone(const char* zone) {
  if (zone == nullptr) {
    return nullptr;
  }
  size_t lo = 0;
  size_t hi = sizeof(kZones) / sizeof(kZones[0]);
  while (lo < hi) {
    const size_t mid = lo + (hi - lo) / 2;
    const int order = strcmp(zone, kZones[mid].zone);
    if (order == 0) {
      return kZones[mid].country;
    }
    if (order < 0) {
      hi = mid;
    } else {
      lo = mid + 1;
    }
  }
  return nullptr;
}

int flicker_mains_hz_of_time_zone(const char* zone) {
  const char* country = flicker_country_of_time_zone(zone);
  if (country == nullptr || listed(country, kNoGuess, sizeof(kNoGuess) / sizeof(kNoGuess[0]))) {
    return 0;
  }
  return listed(country, kSixtyHz, sizeof(kSixtyHz) / sizeof(kSixtyHz[0])) ? 60 : 50;
}

}  // extern "C"
