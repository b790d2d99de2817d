// The few system calls whose form differs between Linux and macOS. Everything the rest of the
// tree needs from the kernel beyond plain POSIX goes through here; README.md lists the calls.
#pragma once

#include <spawn.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::platform {

// File flags as macOS's st_flags carries them. Linux has only the locks: lstatFacts reports a file
// made immutable or append-only (chattr +i, +a) as the system flag, since only a privileged
// process may lift it there too.
inline constexpr std::uint32_t kFlagUserImmutable = 0x00000002;    // UF_IMMUTABLE
inline constexpr std::uint32_t kFlagUserAppend = 0x00000004;       // UF_APPEND
inline constexpr std::uint32_t kFlagCompressed = 0x00000020;       // UF_COMPRESSED
inline constexpr std::uint32_t kFlagSystemImmutable = 0x00020000;  // SF_IMMUTABLE
inline constexpr std::uint32_t kFlagSystemAppend = 0x00040000;     // SF_APPEND
inline constexpr std::uint32_t kFlagRestricted = 0x00080000;       // SF_RESTRICTED: System Integrity Protection
inline constexpr std::uint32_t kFlagNoUnlink = 0x00100000;         // SF_NOUNLINK
inline constexpr std::uint32_t kFlagDataless = 0x40000000;         // SF_DATALESS: the content is in the cloud
// The flags that refuse a removal even to the owner.
inline constexpr std::uint32_t kFlagsLocked = kFlagUserImmutable | kFlagUserAppend | kFlagSystemImmutable | kFlagSystemAppend;

// What lstat/fstat tell of one directory entry.
struct FileFacts {
    std::uint32_t mode = 0;  // type and permission bits, as st_mode
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t linkCount = 0;
    std::int64_t size = 0;
    std::int64_t allocatedBytes = 0;  // st_blocks * 512
    std::int64_t modifiedSeconds = 0;  // since the Unix epoch
    std::int64_t accessedSeconds = 0;  // since the Unix epoch
    std::uint32_t flags = 0;           // kFlag* bits
    std::int64_t modifiedNanoseconds = 0;  // within `modifiedSeconds`: replacements a second apart differ

    bool isDirectory() const;
    bool isSymlink() const;
    bool isRegularFile() const;
    bool operator==(const FileFacts&) const = default;
};

// lstat: the entry itself, links not followed. None when the call fails. A path longer than the
// system's PATH_MAX is reached component by component, links on the way followed as the kernel
// would, so that a long path still gets an answer rather than ENAMETOOLONG.
std::optional<FileFacts> lstatFacts(const std::string& path);
// stat: links followed.
std::optional<FileFacts> statFacts(const std::string& path);
// fstat of an open descriptor.
std::optional<FileFacts> fstatFacts(int fd);
// fstatat(dirFD, name, AT_SYMLINK_NOFOLLOW): an entry of an open folder, links not followed.
std::optional<FileFacts> entryFacts(int dirFD, const std::string& name);

// The value of an extended attribute named as macOS names it ("com.apple.quarantine"), links
// followed. Linux keeps such attributes in the user namespace, so the name is asked for there as
// "user." + name. None when it is absent, cannot be read, is empty or holds more than `maxBytes`.
std::optional<std::string> extendedAttribute(const std::string& path, const std::string& name, std::size_t maxBytes);

// The path the kernel holds for an open descriptor (F_GETPATH on macOS, /proc/self/fd on Linux).
// None when the kernel has no path for it, for instance once the file was removed.
std::optional<std::string> descriptorPath(int fd);

// Renames `from` in `fromDirFD` to `to` in `toDirFD` only if `to` does not exist, atomically
// (renameatx_np RENAME_EXCL, renameat2 RENAME_NOREPLACE). 0 on success, else the errno:
// EEXIST when the destination is taken.
int renameNoReplace(int fromDirFD, const std::string& from, int toDirFD, const std::string& to);

// The file system a path lives on, as statfs reports it (links followed).
struct MountFacts {
    std::string mountPoint;      // f_mntonname
    std::string fileSystemType;  // f_fstypename: "apfs", "ext4", ...
    std::string device;          // f_mntfromname
    bool operator==(const MountFacts&) const = default;
};
// None when the path cannot be reached.
std::optional<MountFacts> mountOf(const std::string& path);

// Makes a spawned child close every descriptor above standard error, whatever its close-on-exec
// flag: a library that opened one without O_CLOEXEC must not leak it into a tool.
// (posix_spawn_file_actions_addclosefrom_np on Linux, POSIX_SPAWN_CLOEXEC_DEFAULT on macOS.)
// False when the system cannot do it.
bool closeOtherDescriptorsInChild(posix_spawn_file_actions_t* actions, posix_spawnattr_t* attributes);

// Asks for a larger pipe buffer (1 MiB) where the system allows one; nothing happens elsewhere.
void enlargePipe(int fd);

// Who is at the other end of a connected local socket, as the kernel says: the user id it
// connected with (never anything the peer says) and the executable it runs now. None when this
// cannot be established, or when the process that connected is no longer the one examined
// (it ended and its pid was given to another).
struct SocketPeer {
    std::uint32_t uid = 0;
    std::int64_t pid = 0;
    std::uint64_t executableDevice = 0;
    std::uint64_t executableInode = 0;
    std::string executablePath;
    bool operator==(const SocketPeer&) const = default;
};
std::optional<SocketPeer> socketPeer(int socketFD);
// Only the user id the peer connected with, as the kernel says; cheaper than `socketPeer`, for
// counting connections before admission.
std::optional<std::uint32_t> socketPeerUID(int socketFD);

// The mounted volumes a user would browse: real storage, not the system's own or hidden mounts.
struct BrowsableVolume {
    std::string path;
    std::string name;  // the volume's name; empty when it has none
    bool isLocal = true;
    bool operator==(const BrowsableVolume&) const = default;
};
std::vector<BrowsableVolume> browsableVolumes();

// Whether the user is an administrator: a member (primary or supplementary, as getgrouplist
// tells) of the group "sudo", "wheel" or "admin". False for a user without a password record.
bool isAdministrator(std::uint32_t uid);

// Whether the file system treats two names that differ only in Unicode normal form as one (APFS
// and HFS+ do). Where it does not, a name is its bytes, and comparing normal forms would let one
// folder stand for another.
bool namesAreNormalized();

// Whether this system keeps /tmp, /var and /etc under "/private" (macOS does).
bool hasPrivateFolder();

// The comparison form of a path puts "/private" before /tmp, /var and /etc as macOS does. On a
// system without "/private" that folder does not exist, so before a walk on the disk the added
// prefix is taken off again; elsewhere the path comes back unchanged.
std::string walkablePath(std::string_view canonicalPath);

// Folders beyond the vendor table's own where this system's package managers put command-line
// tools, tried after the table's candidates. Entries under the home are built from `home`.
std::vector<std::string> extraToolFolders(std::string_view home);

// The running user's folder of temporary items: the parent of NSTemporaryDirectory() on macOS
// (a per-user folder), the temporary folder itself elsewhere, since the parent of a shared /tmp
// is "/". No trailing "/".
std::string userTempRoot();

// The executable of a running process (proc_pidpath on macOS, /proc/<pid>/exe on Linux); none
// when it cannot be read.
std::optional<std::string> processPath(std::int32_t pid);

// Whether the processor is Apple's own (sysctl "hw.optional.arm64" on macOS); false elsewhere.
bool isAppleSilicon();

// The device offset of the file's first byte (F_LOG2PHYS on macOS, the first extent of FIEMAP on
// Linux): two files with the same start share their storage, as clones do. None when the file
// cannot be opened, the file system will not tell, or the file holds no storage yet.
std::optional<std::int64_t> physicalStart(const std::string& path);

// The bytes of storage only this file holds, links not followed: what removing it would give
// back (ATTR_CMNEXT_PRIVATESIZE on macOS; on Linux the extents FIEMAP does not flag as shared).
// None when the file system will not tell.
std::optional<std::int64_t> privateSize(const std::string& path);

// Whether the device a file system was mounted from ("/dev/sdb1") is one the kernel calls
// removable (a USB stick, a card); the partition's disk is asked. False when it cannot be told,
// and always on macOS, whose volume list says which drives are internal.
bool isRemovableDevice(const std::string& device);

// Flushes what was written to the file system holding `path` to its device (syncfs on Linux,
// sync on macOS): a move removes its source only once the copy is on the drive.
void syncFileSystem(const std::string& path);

// Makes `copy`, which holds the same bytes as `keeper`, share the keeper's storage, and leaves it
// at its path with its own owner, mode and times. Linux asks the kernel to compare and share
// (FIDEDUPERANGE, in the chunks the kernel takes), which checks the bytes itself under lock. macOS
// clones the keeper at `working`, gives the clone the copy's metadata and renames it over the copy;
// a crash leaves `working` for the repair to remove. Neither follows a link.
enum class ShareOutcome {
    shared,
    differs,      // the bytes are not the same (Linux tells; macOS relies on the caller's check)
    unsupported,  // this file system cannot share storage between files
    failed,       // refused or failed otherwise: `error` says why
};
struct ShareResult {
    ShareOutcome outcome = ShareOutcome::failed;
    int error = 0;  // the errno, for `failed`
    bool operator==(const ShareResult&) const = default;
};
ShareResult shareStorage(const std::string& keeper, const std::string& copy, const std::string& working);

// Processor time of all processors since boot, in the kernel's ticks, as macOS's
// HOST_CPU_LOAD_INFO counts it: four 32-bit counters that wrap.
struct CPUTicks {
    std::uint32_t user = 0;
    std::uint32_t system = 0;
    std::uint32_t idle = 0;
    std::uint32_t nice = 0;
    bool operator==(const CPUTicks&) const = default;
};
// None when the kernel will not tell (host_statistics on macOS, /proc/stat on Linux).
std::optional<CPUTicks> cpuLoadTicks();

// Memory as the kernel counts it. `held` is what apps cannot have back at once: wired plus
// compressed on macOS, MemTotal less MemAvailable on Linux; `total` is what `held` is a share of.
struct HostMemory {
    std::optional<std::uint64_t> held;
    std::optional<std::uint64_t> total;
    std::optional<std::int64_t> swapUsed;  // bytes of swap in use
    bool operator==(const HostMemory&) const = default;
};
// One reading of the kernel's figures (host_statistics64 and "vm.swapusage" on macOS,
// /proc/meminfo on Linux); each figure none where it could not be read.
HostMemory hostMemory();

// The bytes of physical memory (hw.memsize on macOS, sysconf's pages on Linux); 0 when unknown.
std::uint64_t physicalMemoryBytes();

// The kernel's memory-pressure level as macOS numbers it: 1 normal, 2 warning, 4 critical
// ("kern.memorystatus_vm_pressure_level"; on Linux derived from /proc/pressure/memory). None when
// it cannot be read.
std::optional<std::int32_t> memoryPressureLevel();

struct BatteryReading {
    std::int32_t percent = 0;
    bool charging = false;
    bool operator==(const BatteryReading&) const = default;
};
// The first battery that tells its charge; none when there is no such battery.
std::optional<BatteryReading> battery();

// The bytes an unprivileged user may still write on the file system of `path` (statvfs's
// f_bavail times f_frsize); none when it cannot be asked.
std::optional<std::int64_t> freeBytes(const std::string& path);

}  // namespace orvane::platform
