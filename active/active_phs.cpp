// SPDX-License-Identifier: MIT
// active_phs.cpp - the active PHS tables, one per direction.
//
// The payload header suppression rules in force, as the data path applies
// them: the upstream table (direction 2) and the downstream table
// (direction 1) have the same rows. A rule entry is keyed by SFID,
// classifier ID and PHSI; the downstream table also holds DSID entries,
// keyed by the DSID alone (their SFID and classifier ID read 0xFFFFFFFF,
// their PHSI 255). The row index is the entry's active PHS index.
//
// The caller adds and deletes entries itself: nothing here copies from the
// PHS bindings of the classifier table. Only rows 0..31 of each table hold
// entries; rows 32 and 33 are reserved. A deleted row is all zeros. Bad
// arguments and a full table change nothing.
#include <cstdio>
#include <cstring>

#include "frame/log.h"
#include "frame/out.h"
#include "qosintdb.h"

using qos::ActivePhsRow;
using qos::local;

namespace {

using PhsTable = qos::TableView<ActivePhsRow, qos::kActivePhsReserved>;

constexpr int32_t kEntries = QOS_ACTIVE_PHS_ROWS;
constexpr uint32_t kInUse = 1;
constexpr uint32_t kDsidKey = 0xFFFFFFFF;
constexpr uint8_t kDsidPhsi = 255;

// The table of a direction; nullptr for any other value.
const PhsTable* tableOf(uint8_t direction) {
  if (direction == QOS_DIR_UPSTREAM) return &local.phsUs;
  if (direction == QOS_DIR_DOWNSTREAM) return &local.phsDs;
  return nullptr;
}

// The lowest entry row (0..31) that is in use and satisfies pred; -1.
template <typename Pred>
int32_t findEntry(const PhsTable& table, Pred pred) {
  return table.find([&pred](const ActivePhsRow& r) { return r.status == kInUse && pred(r); }, 0, kEntries - 1);
}

int32_t findRule(const PhsTable& table, uint32_t sfId, uint32_t clsfId, uint8_t phsi) {
  return findEntry(table, [=](const ActivePhsRow& r) { return r.sfId == sfId && r.clsfId == clsfId && r.phsi == phsi; });
}

int32_t findFree(const PhsTable& table) {
  return table.find([](const ActivePhsRow& r) { return r.status == 0; }, 0, kEntries - 1);
}

bool isDsidEntry(const ActivePhsRow& r) {
  return r.sfId == kDsidKey && r.clsfId == kDsidKey && r.phsi == kDsidPhsi;
}

// Opens an index lookup: the answer reads -1 until a row is found; false
// for a NULL answer.
bool clearAnswer(uint32_t* out) {
  if (out == nullptr) return false;
  *out = 0xFFFFFFFF;
  return true;
}

void printTable(const PhsTable& table) {
  int32_t i = 0;
  for (const ActivePhsRow& r : table) {
    if (r.used()) {
      std::printf("DB Idx=%-2d   SFID=0x%-8x  ClsfID=0x%x  PHSI=0x%x Row status=%d \n", i, r.sfId, r.clsfId,
                  static_cast<unsigned>(r.phsi), static_cast<int>(r.status));
    }
    ++i;
  }
}

}  // namespace

// The message of a direction other than 1 and 2 (the operation's name, the
// direction).
#define QOS_PHS_BAD_DIRECTION "%s(): Incorrect direction value %d"

extern "C" {

int32_t qos_intDb_AddActivePhsEntry(uint32_t sfId, uint32_t clsfId, uint8_t phsi, uint8_t direction) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfId == 0 || clsfId == 0 || phsi == 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s(): Incorrect input parameters SFID=0x%x, ClsfId=%d, PHSI=0x%x", __func__, sfId,
            static_cast<int>(clsfId), static_cast<unsigned>(phsi));
    return -1;
  }
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_BAD_DIRECTION, __func__, static_cast<int>(direction));
    return -1;
  }
  if (findRule(*table, sfId, clsfId, phsi) >= 0) return 0;
  int32_t row = findFree(*table);
  if (row < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s(): PHS active DB is full. Cannot add new entry (PHSI=0x%x)", __func__,
            static_cast<unsigned>(phsi));
    return -1;
  }
  ActivePhsRow& entry = (*table)[row];
  entry.status = kInUse;
  entry.phsi = phsi;
  entry.sfId = sfId;
  entry.clsfId = clsfId;
  return 0;
}

int32_t qos_intDb_AddActivePhsEntryByDsid(uint32_t dsid) {
  QOS_REQUIRE_SF_DB(-1);
  if (dsid == 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Incorrect input parameter DSID = 0x%x", __func__, dsid);
    return -1;
  }
  if (findEntry(local.phsDs, [dsid](const ActivePhsRow& r) { return r.dsid == dsid; }) >= 0) return 0;
  int32_t row = findFree(local.phsDs);
  if (row < 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: PHS active DB is full. Cannot add new entry (DSID = 0x%x)", __func__, dsid);
    return -1;
  }
  ActivePhsRow& entry = local.phsDs[row];
  entry.status = kInUse;
  entry.dsid = dsid;
  entry.phsi = kDsidPhsi;
  entry.sfId = kDsidKey;
  entry.clsfId = kDsidKey;
  return 0;
}

int32_t qos_intDb_DeleteActivePhsEntry(uint32_t sfId, uint32_t clsfId, uint8_t phsi, uint8_t direction) {
  QOS_REQUIRE_SF_DB(-1);
  if (sfId == 0 || clsfId == 0 || phsi == 0) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Incorrect input parameters SFID=0x%x, ClsfId=%d, PHSI=0x%x", __func__, sfId,
            static_cast<int>(clsfId), static_cast<unsigned>(phsi));
    return -1;
  }
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, "%s: Incorrect direction value %d", __func__, static_cast<int>(direction));
    return -1;
  }
  int32_t row = findRule(*table, sfId, clsfId, phsi);
  if (row < 0) {
    // Deleting what is already gone is not an error.
    QOS_LOG(QOS_LOG_NOTICE, "%s: PHS is not in active PHS DB (PHSI=0x%x", __func__, static_cast<unsigned>(phsi));
    return 0;
  }
  std::memset(&(*table)[row], 0, sizeof(ActivePhsRow));
  return 0;
}

int32_t qos_intDb_DeleteActivePhsEntryByIndex(int32_t activePhsIndex, uint8_t direction) {
  QOS_REQUIRE_SF_DB(-1);
  if (activePhsIndex < 0 || activePhsIndex >= PhsTable::kRows) {
    QOS_LOG(QOS_LOG_ERROR, "%s: ---> PHS active DB index %d is out of range", __func__, activePhsIndex);
    return -1;
  }
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_BAD_DIRECTION, __func__, static_cast<int>(direction));
    return -1;
  }
  ActivePhsRow& entry = (*table)[activePhsIndex];
  if (entry.status != kInUse) {
    QOS_LOG(QOS_LOG_ERROR, "%s(): Incorrect DB index value %d for delete operation; the entry is not valid",
            __func__, activePhsIndex);
    return -1;
  }
  std::memset(&entry, 0, sizeof entry);
  return 0;
}

int32_t qos_intDb_GetActivePhsIndex(uint32_t sfId, uint8_t direction, uint32_t* activePhsIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!clearAnswer(activePhsIndex)) return -1;
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_BAD_DIRECTION, __func__, static_cast<int>(direction));
    return -1;
  }
  return qos::writeRow(findEntry(*table, [sfId](const ActivePhsRow& r) { return r.sfId == sfId; }), activePhsIndex);
}

int32_t qos_intDb_GetActivePhsIndexByClsf(uint32_t sfId, uint32_t clsfId, uint8_t direction,
                                          uint32_t* activePhsIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!clearAnswer(activePhsIndex)) return -1;
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, QOS_PHS_BAD_DIRECTION, __func__, static_cast<int>(direction));
    return -1;
  }
  return qos::writeRow(findEntry(*table, [=](const ActivePhsRow& r) { return r.sfId == sfId && r.clsfId == clsfId; }),
                activePhsIndex);
}

int32_t qos_intDb_GetActivePhsIndexByDsid(uint32_t dsid, uint32_t* activePhsIndex) {
  QOS_REQUIRE_SF_DB(-1);
  if (!clearAnswer(activePhsIndex)) return -1;
  return qos::writeRow(findEntry(local.phsDs, [dsid](const ActivePhsRow& r) { return r.dsid == dsid; }), activePhsIndex);
}

int32_t qos_intDb_GetActivePhsInfo(int32_t activePhsIndex, uint8_t direction, uint32_t* sfId, uint16_t* clsfId,
                                   uint8_t* phsi) {
  QOS_REQUIRE_SF_DB(-1);
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, "Incorrect direction value %d", static_cast<int>(direction));
    return -1;
  }
  if (activePhsIndex < 0 || activePhsIndex >= kEntries) {
    QOS_LOG(QOS_LOG_ERROR, "activePhsDbIndex = %d too large, max = %d", activePhsIndex, kEntries - 1);
    return -1;
  }
  if (sfId == nullptr || clsfId == nullptr || phsi == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, "NULL outpt pointer : sfId == %p, clsfrId == %p, phsId == %p", static_cast<void*>(sfId),
            static_cast<void*>(clsfId), static_cast<void*>(phsi));
    return -1;
  }
  const ActivePhsRow& entry = (*table)[activePhsIndex];
  if (entry.status != kInUse || isDsidEntry(entry)) return -1;
  *sfId = entry.sfId;
  *clsfId = static_cast<uint16_t>(entry.clsfId);
  *phsi = entry.phsi;
  return 0;
}

int32_t qos_intDb_SetActivePhsSfid(int32_t activePhsIndex, uint8_t direction, uint32_t sfId) {
  QOS_REQUIRE_SF_DB(-1);
  const PhsTable* table = tableOf(direction);
  if (table == nullptr) {
    QOS_LOG(QOS_LOG_ERROR, "Incorrect direction value %d", static_cast<int>(direction));
    return -1;
  }
  if (activePhsIndex < 0 || activePhsIndex >= kEntries) {
    QOS_LOG(QOS_LOG_ERROR, "activePhsDbIndex = %d too large, max = %d", activePhsIndex, kEntries - 1);
    return -1;
  }
  (*table)[activePhsIndex].sfId = sfId;
  return 0;
}

int32_t qos_intDb_PrintActivePhsDB(void) {
  QOS_REQUIRE_SF_DB(-1);
  std::puts("\n   Active upstream PHS internal data base \n");
  printTable(local.phsUs);
  std::puts("\n   Active downstream PHS internal data base \n");
  printTable(local.phsDs);
  return 0;
}

}  // extern "C"
