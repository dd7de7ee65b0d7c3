// Device registry: one UserDataStruct per device id in an ordered list. A lookup finds the last
// entry of an id (the last match wins); unknown ids are created on demand. Records dropped from
// the list are never released (hosts may still hold them); they move to a retired list so they
// stay reachable for the life of the process.
//
// The list is public and stays the one source of truth. Beside it each registry keeps an index
// id -> position of the id's last entry, so a lookup costs the same with one device or 100,000.
// The index lives in a side table keyed by the registry's address rather than in the class, so
// the class layout hosts compiled against stays as it is. Hosts that edit the list directly are
// caught when its length or storage changes or an indexed entry no longer carries its id; the
// index is then rebuilt from the list with the same last-match rule a scan applies.
#include <cstddef>
#include <mutex>
#include <unordered_map>

#include "registry/device_record.h"
#include "rtmonitor/GeneralRealTime.h"

namespace {

std::vector<UserDataStruct*>* gRetired = nullptr;

void retire(UserDataStruct* record) {
    if (gRetired == nullptr) gRetired = new std::vector<UserDataStruct*>();
    gRetired->push_back(record);
}

struct RegistryIndex {
    std::unordered_map<int, std::size_t> position;  // id -> position of its last entry
    // The list as last indexed: a host that grows, shrinks or reallocates it forces a rebuild.
    UserDataStruct* const* data = nullptr;
    std::size_t size = 0;
    // Only direct edits of the list can give an id two entries; removal then re-reads the list.
    bool duplicates = false;
};

// Registries are independent objects a host may create on any thread; the mutex guards only
// the table of indexes, never a registry's own index (each registry is used by one thread at
// a time, under the exported entry points' lock or the host's own discipline).
std::mutex gIndexTableMutex;
std::unordered_map<const GeneralTimeTime*, RegistryIndex>* gIndexTable = nullptr;

// Node-based map: the reference stays valid while other registries are added or dropped.
RegistryIndex& indexOf(const GeneralTimeTime* reg) {
    std::lock_guard<std::mutex> guard(gIndexTableMutex);
    if (gIndexTable == nullptr) gIndexTable = new std::unordered_map<const GeneralTimeTime*, RegistryIndex>();
    return (*gIndexTable)[reg];
}

void dropIndex(const GeneralTimeTime* reg) {
    std::lock_guard<std::mutex> guard(gIndexTableMutex);
    if (gIndexTable != nullptr) gIndexTable->erase(reg);
}

void noteShape(RegistryIndex& ix, const std::vector<UserDataStruct*>& list) {
    ix.data = list.data();
    ix.size = list.size();
}

void rebuild(RegistryIndex& ix, const std::vector<UserDataStruct*>& list) {
    ix.position.clear();
    ix.position.reserve(list.size());
    // Ascending, so a later entry of the same id overwrites an earlier one.
    for (std::size_t i = 0; i < list.size(); ++i) ix.position[list[i]->nDeviceId] = i;
    ix.duplicates = ix.position.size() != list.size();
    noteShape(ix, list);
}

// What a scan of the whole list with the last match winning would give, or -1.
int lookup(RegistryIndex& ix, const std::vector<UserDataStruct*>& list, int id) {
    if (ix.data != list.data() || ix.size != list.size()) rebuild(ix, list);
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto it = ix.position.find(id);
        if (it == ix.position.end()) return -1;
        const std::size_t pos = it->second;
        if (pos < list.size() && list[pos]->nDeviceId == id) return static_cast<int>(pos);
        rebuild(ix, list);  // an entry was changed in place
    }
    return -1;
}

void removeAt(RegistryIndex& ix, std::vector<UserDataStruct*>& list, int index) {
    const std::size_t at = static_cast<std::size_t>(index);
    const int id = list[at]->nDeviceId;
    retire(list[at]);
    list.erase(list.begin() + index);
    if (ix.duplicates) {
        rebuild(ix, list);
        return;
    }
    ix.position.erase(id);
    // Every later entry moved down by one.
    for (std::size_t i = at; i < list.size(); ++i) ix.position[list[i]->nDeviceId] = i;
    noteShape(ix, list);
}

}  // namespace

GeneralTimeTime::GeneralTimeTime() {
    // A registry at the address of one that was never destroyed must not inherit its index.
    indexOf(this) = RegistryIndex();
}

GeneralTimeTime::~GeneralTimeTime() {
    for (UserDataStruct* record : m_vecUserData) retire(record);
    dropIndex(this);
}

bool GeneralTimeTime::InitRealTime(int id) {
    RegistryIndex& ix = indexOf(this);
    const int old = lookup(ix, m_vecUserData, id);
    if (old != -1) removeAt(ix, m_vecUserData, old);

    // Value-initialised: the storage starts at zero before the analysers' constructors run, as
    // the heart analyser's never-reset counters require.
    UserDataStruct* record = new UserDataStruct();
    rtm::resetDeviceRecord(*record, id);

    m_vecUserData.push_back(record);
    ix.position[id] = m_vecUserData.size() - 1;
    noteShape(ix, m_vecUserData);
    return true;
}

int GeneralTimeTime::GetDataStructIndex(int id) {
    const int index = lookup(indexOf(this), m_vecUserData, id);
    if (index != -1) return index;
    if (InitRealTime(id)) return static_cast<int>(m_vecUserData.size()) - 1;
    return -1;
}

bool GeneralTimeTime::ClearRealTimeSingle(int id) {
    // An unknown id is created first and then removed again, leaving the list as it was.
    const int index = GetDataStructIndex(id);
    if (index != -1) removeAt(indexOf(this), m_vecUserData, index);
    return true;
}

bool GeneralTimeTime::ClearRealTimeAll() {
    for (UserDataStruct* record : m_vecUserData) retire(record);
    m_vecUserData.clear();
    RegistryIndex& ix = indexOf(this);
    ix.position.clear();
    ix.duplicates = false;
    noteShape(ix, m_vecUserData);
    return true;
}

namespace rtm {

void resetDeviceRecord(UserDataStruct& record, int id) {
    record.nDeviceId = 0;
    record.nSpare = 0;
    record.nDeviceId = id;

    // The values are not read by the analyser, but the record keeps its established form.
    SettingParameter settings;
    settings.nSettingA = 190;
    settings.nSettingB = 120;
    settings.nSettingC = 50;

    record.cBeatMeasure.HeartProInit();
    record.cBeatMeasure.Init(settings);
    record.cBeatMeasure.Init_NOBeat(settings);
    record.cBreathPro.BreathProInit();
    record.cBreathPro.BreathnoProInit();
    record.cPedometerPro.PedometerProInit();
}

}  // namespace rtm
