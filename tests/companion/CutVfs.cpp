// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/companion/CutVfs.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t sectorSize = 512;  // that a disk writes whole or not at all

std::size_t Below(std::mt19937_64& random, std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
}

void Apply(std::string& content, const CutFile::Change& change) {
    const std::size_t end = change.offset + change.bytes.size();
    if (change.truncates || content.size() < end) content.resize(end);
    content.replace(change.offset, change.bytes.size(), change.bytes);
}

// What a disk has of a write that was torn at the border of a sector.
CutFile::Change Torn(std::mt19937_64& random, const CutFile::Change& whole) {
    const std::size_t first = whole.offset / sectorSize + 1;
    const std::size_t end = whole.offset + whole.bytes.size();
    const std::size_t borders = end > first * sectorSize ? (end - 1) / sectorSize - first + 1 : 0;
    if (borders == 0) return whole;
    const std::size_t kept = (first + Below(random, borders)) * sectorSize - whole.offset;
    if (Below(random, 2) == 0) return {whole.offset, whole.bytes.substr(0, kept), false};
    return {whole.offset + kept, whole.bytes.substr(kept), false};
}

CutVfs::Handle& HandleOf(sqlite3_file* file) {
    return *reinterpret_cast<CutVfs::Handle*>(file);
}

CutVfs& VfsOf(sqlite3_vfs* vfs) {
    return *static_cast<CutVfs*>(vfs->pAppData);
}

int CloseFile(sqlite3_file* file) {
    delete HandleOf(file).file;
    return SQLITE_OK;
}

int Lock(sqlite3_file*, int) {
    return SQLITE_OK;
}

int CheckReserved(sqlite3_file*, int* reserved) {
    *reserved = 0;
    return SQLITE_OK;
}

int FileSize(sqlite3_file* file, sqlite3_int64* size) {
    *size = static_cast<sqlite3_int64>((*HandleOf(file).file)->Seen().size());
    return SQLITE_OK;
}

int ReadFile(sqlite3_file* file, void* to, int size, sqlite3_int64 offset) {
    return HandleOf(file).vfs->Read(HandleOf(file), static_cast<char*>(to),
                                    static_cast<std::size_t>(size),
                                    static_cast<std::size_t>(offset));
}

int WriteFile(sqlite3_file* file, const void* from, int size, sqlite3_int64 offset) {
    const std::string bytes(static_cast<const char*>(from), static_cast<std::size_t>(size));
    return HandleOf(file).vfs->Write(HandleOf(file), bytes, static_cast<std::size_t>(offset));
}

int TruncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return HandleOf(file).vfs->Truncate(HandleOf(file), static_cast<std::size_t>(size));
}

int MapShared(sqlite3_file* file, int index, int size, int make, void volatile** region) {
    *region = HandleOf(file).vfs->SharedRegion(static_cast<std::size_t>(index),
                                               static_cast<std::size_t>(size), make != 0);
    return SQLITE_OK;
}

int UnmapShared(sqlite3_file* file, int) {
    HandleOf(file).vfs->ForgetShared();  // as the first connection of all does
    return SQLITE_OK;
}

// Sectors and promises are those of SQLite's own file system on Linux.
constexpr sqlite3_io_methods methods = {
    .iVersion = 2,
    .xClose = CloseFile,
    .xRead = ReadFile,
    .xWrite = WriteFile,
    .xTruncate = TruncateFile,
    .xSync = [](sqlite3_file* file, int) { return HandleOf(file).vfs->Sync(HandleOf(file)); },
    .xFileSize = FileSize,
    .xLock = Lock,
    .xUnlock = Lock,
    .xCheckReservedLock = CheckReserved,
    .xFileControl = [](sqlite3_file*, int, void*) { return SQLITE_NOTFOUND; },
    .xSectorSize = [](sqlite3_file*) { return 4096; },
    .xDeviceCharacteristics = [](sqlite3_file*) { return SQLITE_IOCAP_POWERSAFE_OVERWRITE; },
    .xShmMap = MapShared,
    .xShmLock = [](sqlite3_file*, int, int, int) { return SQLITE_OK; },
    .xShmBarrier = [](sqlite3_file*) {},
    .xShmUnmap = UnmapShared,
    .xFetch = nullptr,
    .xUnfetch = nullptr,
};

int OpenFile(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* outFlags) {
    auto& handle = *new (file) CutVfs::Handle{{nullptr}, &VfsOf(vfs), nullptr, false};
    const int result = handle.vfs->Open(path, handle, flags);
    if (result == SQLITE_OK) handle.base.pMethods = &methods;
    if (outFlags != nullptr) *outFlags = flags;
    return result;
}

int Access(sqlite3_vfs* vfs, const char* path, int, int* found) {
    *found = VfsOf(vfs).Exists(path) ? 1 : 0;
    return SQLITE_OK;
}

int FullPath(sqlite3_vfs*, const char* path, int size, char* full) {
    sqlite3_snprintf(size, full, "%s", path);
    return SQLITE_OK;
}

int Randomness(sqlite3_vfs* vfs, int size, char* to) {
    return VfsOf(vfs).Fill(to, static_cast<std::size_t>(size));
}

int CurrentTime(sqlite3_vfs*, double* days) {
    *days = 2460000.5;
    return SQLITE_OK;
}

}  // namespace

void CutFile::Add(const Change& change) {
    Apply(seen_, change);
    changes_.push_back(change);
}

void CutFile::Sync() {
    for (const Change& change : changes_) Apply(durable_, change);
    changes_.clear();
}

// All of them, none, or each by itself; as they were written, or in another order.
void CutFile::LoseSome(std::mt19937_64& random) {
    enum Mood { KeepAll, DropAll, KeepInOrder, KeepInAnyOrder, moods };
    const std::size_t mood = Below(random, moods);
    if (mood == KeepInAnyOrder) std::shuffle(changes_.begin(), changes_.end(), random);
    for (const Change& change : changes_) {
        const std::size_t fate = mood == KeepAll ? 0 : mood == DropAll ? 1 : Below(random, 3);
        if (fate == 0) Apply(durable_, change);
        if (fate == 2) Apply(durable_, change.truncates ? change : Torn(random, change));
    }
    changes_.clear();
}

CutVfs::CutVfs(std::uint64_t seed) : random_(seed) {
    static int count = 0;
    name_ = "cut" + std::to_string(++count);
    vfs_.iVersion = 1;
    vfs_.szOsFile = sizeof(Handle);
    vfs_.mxPathname = 512;
    vfs_.zName = name_.c_str();
    vfs_.pAppData = this;
    vfs_.xOpen = OpenFile;
    vfs_.xDelete = [](sqlite3_vfs* vfs, const char* path, int syncFolder) {
        return VfsOf(vfs).Delete(path, syncFolder != 0);
    };
    vfs_.xAccess = Access;
    vfs_.xFullPathname = FullPath;
    vfs_.xRandomness = Randomness;
    vfs_.xSleep = [](sqlite3_vfs*, int microseconds) { return microseconds; };
    vfs_.xCurrentTime = CurrentTime;
    vfs_.xGetLastError = [](sqlite3_vfs*, int, char*) { return 0; };
    sqlite3_vfs_register(&vfs_, 0);
}

CutVfs::~CutVfs() {
    sqlite3_vfs_unregister(&vfs_);
}

// Every name's entry is the last one on disk, or one of those that it has had since.
void CutVfs::CutAndPowerOn() {
    for (const auto& [path, changes] : entryChanges_) {
        const std::size_t choice = Below(random_, changes.size() + 1);
        if (choice < changes.size()) durableFiles_[path] = changes[choice];
    }
    std::erase_if(durableFiles_, [](const auto& entry) { return entry.second == nullptr; });
    files_ = durableFiles_;
    for (const auto& [path, file] : files_) {
        file->LoseSome(random_);
        file->PowerOn();
    }
    entryChanges_.clear();
    shared_.clear();
    cut_ = false;
    cutAt_.reset();
}

void CutVfs::FailFrom(std::size_t step, int code, std::size_t count) {
    failFrom_ = step;
    failCode_ = code;
    failures_ = count;
}

// What the next step comes to. When the power fails in it, it takes place, for what that is worth,
// and nobody hears of it.
int CutVfs::Step() {
    const std::size_t step = steps_++;
    cut_ = cutAt_ == step;
    if (step < failFrom_ || failures_ == 0) return SQLITE_OK;
    --failures_;
    return failCode_;
}

int CutVfs::Open(const char* path, Handle& handle, int flags) {
    if (path == nullptr) {  // a temporary file
        handle.file = new File(std::make_shared<CutFile>());
        return SQLITE_OK;
    }
    if (cut_) return SQLITE_CANTOPEN;
    if (!Exists(path)) {
        if ((flags & SQLITE_OPEN_CREATE) == 0 || Step() != SQLITE_OK) return SQLITE_CANTOPEN;
        SetEntry(path, std::make_shared<CutFile>());
        handle.syncsFolder = (flags & (SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL)) != 0;
    }
    handle.file = new File(files_.at(path));
    return SQLITE_OK;
}

int CutVfs::Delete(const std::string& path, bool syncFolder) {
    if (cut_) return SQLITE_IOERR_DELETE;
    if (!Exists(path)) return SQLITE_IOERR_DELETE_NOENT;
    if (Step() != SQLITE_OK) return SQLITE_IOERR_DELETE;
    SetEntry(path, nullptr);
    if (cut_) return SQLITE_IOERR_DELETE;
    if (syncFolder && !ignoresSyncs_) SyncFolder();
    return SQLITE_OK;
}

int CutVfs::Read(const Handle& handle, char* to, std::size_t size, std::size_t offset) const {
    if (cut_) return SQLITE_IOERR_READ;
    const std::string& content = (*handle.file)->Seen();
    const std::size_t there = offset < content.size() ? std::min(size, content.size() - offset) : 0;
    if (there > 0) content.copy(to, there, offset);
    std::memset(to + there, 0, size - there);
    return there == size ? SQLITE_OK : SQLITE_IOERR_SHORT_READ;
}

// A write that fails may have been done in part.
int CutVfs::Write(const Handle& handle, const std::string& bytes, std::size_t offset) {
    if (cut_) return SQLITE_IOERR_WRITE;
    const int result = Step();
    const std::size_t done = result == SQLITE_OK ? bytes.size() : Below(random_, bytes.size());
    (*handle.file)->Write(offset, bytes.substr(0, done));
    return cut_ ? SQLITE_IOERR_WRITE : result;
}

int CutVfs::Truncate(const Handle& handle, std::size_t size) {
    if (cut_) return SQLITE_IOERR_TRUNCATE;
    const int result = Step();
    if (result == SQLITE_OK) (*handle.file)->Truncate(size);
    return cut_ ? SQLITE_IOERR_TRUNCATE : result;
}

// What a failed sync did not bring to disk no later one brings: the system takes it for written.
int CutVfs::Sync(Handle& handle) {
    if (cut_) return SQLITE_IOERR_FSYNC;
    const int result = Step();
    if (result != SQLITE_OK) (*handle.file)->LoseSome(random_);
    if (cut_) return SQLITE_IOERR_FSYNC;
    if (result != SQLITE_OK || ignoresSyncs_) return result;
    (*handle.file)->Sync();
    if (handle.syncsFolder) SyncFolder();
    handle.syncsFolder = false;
    return SQLITE_OK;
}

volatile void* CutVfs::SharedRegion(std::size_t index, std::size_t size, bool make) {
    while (make && shared_.size() <= index) shared_.push_back(std::make_unique<char[]>(size));
    return index < shared_.size() ? shared_[index].get() : nullptr;
}

int CutVfs::Fill(char* to, std::size_t size) {
    std::generate_n(to, size, [this] { return static_cast<char>(random_()); });
    return static_cast<int>(size);
}

void CutVfs::SetEntry(const std::string& path, const File& file) {
    entryChanges_[path].push_back(file);
    if (file) {
        files_[path] = file;
    } else {
        files_.erase(path);
    }
}

void CutVfs::SyncFolder() {
    durableFiles_ = files_;
    entryChanges_.clear();
}
