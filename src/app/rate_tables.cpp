#include "app/rate_tables.h"

#include <array>
#include <span>

#include "app/number_text.h"
#include "app/options.h"

namespace qrx {

namespace {

struct RateRow {
  uint32_t rate;
  uint8_t code;
  bool keepsCode;  // the row accepts the rate but leaves the code as it was
};

struct RateTable {
  std::span<const RateRow> rows;
  uint8_t otherCode;       // code of a rate the table does not list
  bool otherSetsUnlisted;  // whether such a rate is marked unlisted
};

constexpr std::array<RateRow, 6> kFpgaRates = {{
    {230400, 5, false},
    {460800, 6, false},
    {921600, 7, false},
    {1843200, 8, false},
    {3250000, 9, false},
    {3000000, 10, false},
}};

// 115200 is deliberately absent: it maps like any unlisted rate (code 4, marked).
constexpr std::array<RateRow, 12> kAsicRates = {{
    {230400, 5, false},
    {460800, 6, false},
    {921600, 7, false},
    {1843200, 8, false},
    {2000000, 10, false},
    {3000000, 11, false},
    {3250000, 9, false},
    {3686400, 12, false},
    {3714286, 12, false},
    {4333333, 13, false},
    {6500000, 14, false},
    {6000000, 0, true},  // accepted but the code is not touched; intended
}};

constexpr RateTable kFpgaTable{kFpgaRates, kDefaultBaudRateCode, false};
constexpr RateTable kAsicTable{kAsicRates, kDefaultBaudRateCode, true};

RateMapping MapByTable(const RateTable& table, uint32_t rate, RateMapping current) {
  for (const RateRow& row : table.rows) {
    if (row.rate != rate) continue;
    if (!row.keepsCode) current.code = row.code;
    return current;
  }
  current.code = table.otherCode;
  if (table.otherSetsUnlisted) current.unlisted = true;
  return current;
}

bool MapTextByTable(const RateTable& table, const char* rateText, uint32_t* rate, uint8_t* code) {
  // -r texts convert like every decimal option value; a negative one wraps.
  const auto value = static_cast<uint32_t>(ParseDecimal(rateText));
  if (rate != nullptr) *rate = value;
  if (code != nullptr) *code = MapByTable(table, value, {*code, false}).code;
  return true;
}

}  // namespace

RateMapping MapBaudRate(int32_t hostInterface, uint32_t rate, RateMapping current) {
  return MapByTable(hostInterface == kHostInterfaceFpga ? kFpgaTable : kAsicTable, rate, current);
}

bool MapAsicBaudRate(const char* rateText, uint32_t* rate, uint8_t* code) {
  return MapTextByTable(kAsicTable, rateText, rate, code);
}

bool MapFpgaBaudRate(const char* rateText, uint32_t* rate, uint8_t* code) {
  return MapTextByTable(kFpgaTable, rateText, rate, code);
}

}  // namespace qrx
