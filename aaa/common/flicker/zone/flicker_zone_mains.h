// A first guess of the mains frequency from the time zone: the frequency of
// the mains grid of the country an IANA time zone belongs to.
//
// A manager starts in the state that the customisation's initial frequency
// gives (cust_getFlickerHalPara) and keeps it until its first switch; a phone
// taken to a country on the other frequency shows banding until then. A
// device's customisation library can start from the time zone the phone is
// set to (the property persist.sys.timezone on Android) instead of a fixed
// value:
//
//   const int guess = flicker_mains_hz_of_time_zone("America/Chicago");  // 60
//   *initHz = guess != 0 ? guess : 50;
//
// Sources: the zone's country from the IANA time zone database
// (flicker_zone_countries.inc, generated from its zone.tab and links by
// scripts/zone_countries.py); the country's mains frequency from the IEC's
// "World Plugs" list (International Electrotechnical Commission,
// https://www.iec.ch/world-plugs), which gives voltage and frequency per
// country.
//
// Header and source have no dependencies, so a customisation library links
// them on their own (Android.bp: libflicker_zone_mains) without linking the
// manager. Pure functions over constant tables: thread-safe, no allocation.
#pragma once

extern "C" {

// 50 or 60 for IANA time zone `zone` ("Europe/Berlin", or an old name such
// as "US/Pacific"); 0 for no guess: null, unknown or without a country
// ("UTC", "Etc/GMT+3"), Antarctica, or a country whose grid runs at both
// frequencies (Japan: one zone covers its 50 Hz east and 60 Hz west).
int flicker_mains_hz_of_time_zone(const char* zone);

// The ISO 3166 country code of `zone` ("DE"), or null when it has none.
const char* flicker_country_of_time_zone(const char* zone);

}  // extern "C"
