#include "core/relocation/mover.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "core/common/fd.hpp"
#include "core/common/folder_entries.hpp"
#include "core/common/format.hpp"
#include "core/common/path.hpp"
#include "core/duplicates/content_hash.hpp"
#include "core/duplicates/digest.hpp"
#include "core/duplicates/duplicate_scan.hpp"
#include "core/duplicates/private_bytes.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/journals.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/trash.hpp"
#include "core/platform/platform.hpp"
#include "core/privileged/no_follow.hpp"
#include "core/relocation/destinations.hpp"

namespace orvane {

namespace {

// What a walk of the source found, before anything is copied.
struct SourceSurvey {
    std::int64_t bytes = 0;
    std::int64_t files = 0;
    std::optional<std::string> problem;  // a sentence that refuses the move
};

void survey(const std::string& path, std::uint64_t device, const Facts& facts, SourceSurvey& out) {
    if (out.problem) return;
    const auto entry = facts.lstat(path);
    if (!entry) {
        out.problem = path + " could not be read, so it can't be copied.";
    } else if (entry->isRegularFile()) {
        out.bytes += entry->size;
        ++out.files;
    } else if (entry->isDirectory()) {
        if (entry->device != device) {
            out.problem = path + " is another drive mounted inside what is to be moved; it can't be moved with it.";
            return;
        }
        const auto entries = facts.list(path);
        if (!entries) {
            out.problem = path + " could not be read, so it can't be copied.";
            return;
        }
        for (const auto& child : *entries) survey(appendingPathComponent(path, child.name), device, facts, out);
    } else if (!entry->isSymlink()) {
        out.problem = path + " is neither a file, a folder nor a shortcut, so it can't be copied.";
    }
}

// "name", then "name 2", "name 3", ... before the extension of a file: never over anything.
std::string freshName(const std::string& folder, const std::string& name, bool isFolder, const Facts& facts) {
    const auto dot = isFolder ? std::string::npos : name.rfind('.');
    const bool hasExtension = dot != std::string::npos && dot > 0;
    const std::string stem = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? name.substr(dot) : "";
    for (int n = 1;; ++n) {
        const std::string candidate = n == 1 ? name : stem + " " + std::to_string(n) + extension;
        const std::string path = appendingPathComponent(folder, candidate);
        if (!facts.lstat(path) && !facts.lstat(path + std::string(kMoveWorkingSuffix))) return path;
    }
}

MovePreparation refused(std::string sentence) { return {std::nullopt, std::move(sentence)}; }

}  // namespace

MovePreparation prepareMove(const std::string& src, const std::string& destination, const std::string& title,
                            const MoveChecks& checks, const Facts& facts) {
    const auto source = facts.lstat(src);
    if (!source) return refused("There is nothing at " + src + ".");
    if (source->isSymlink()) return refused(src + " is a shortcut already; move what it points at instead.");
    if (checks.sourceRefusal)
        if (auto why = checks.sourceRefusal(src)) return refused(src + " can't be moved: " + *why);
    if (checks.storeRefusal)
        if (auto why = checks.storeRefusal(src)) return refused(*why);

    const auto target = facts.lstat(destination);
    if (!target || !target->isDirectory()) return refused(destination + " is not a folder on a drive.");
    const auto targetMount = facts.mount(destination);
    const auto sourceMount = facts.mount(deletingLastPathComponent(src));
    if (!targetMount || !sourceMount) return refused("The drive of " + destination + " could not be examined.");
    // A recorded Mac's files all lie on this machine's one disk: only its mount table tells drives apart.
    if (targetMount->mountPoint == sourceMount->mountPoint || (!facts.recorded && target->device == source->device))
        return refused(destination + " is on the same drive as " + src + ": moving it there frees nothing.");
    const bool photosLibrary = lastPathComponent(src).ends_with(".photoslibrary");
    const MoveFormatVerdict format =
        moveDestinationVerdict(verdictFileSystemType(targetMount->fileSystemType), photosLibrary, false);
    if (auto reason = format.reason()) return refused(destination + " can't take it: " + *reason);

    SourceSurvey found;
    survey(src, source->device, facts, found);
    if (found.problem) return refused(*found.problem);
    const VolumeFigures room = facts.volume(destination);
    // A little to spare: the file system's own records take room as the copy grows.
    const std::int64_t needed = found.bytes + found.bytes / 100 + 1'000'000;
    if (room.available && *room.available < needed)
        return refused(destination + " has " + fmtBytes(*room.available) + " free; moving " + src + " needs " +
                       fmtBytes(needed) + ".");
    if (!facts.recorded && ::access(deletingLastPathComponent(src).c_str(), W_OK | X_OK) != 0)
        return refused(src + " can't be taken out of its folder by this user, so it can't be moved.");

    MovePlan plan;
    plan.src = src;
    plan.title = title.empty() ? lastPathComponent(src) : title;
    plan.folder = appendingPathComponent(destination, "Offloaded");
    plan.dst = freshName(plan.folder, lastPathComponent(src), source->isDirectory(), facts);
    plan.fileSystemType = targetMount->fileSystemType;
    plan.bytes = found.bytes;
    plan.files = found.files;
    // Below 100 MB no part shared can reach the warning's floor, and on a file system that cannot
    // share storage between files nothing is shared: asking would only walk the source again.
    static const std::set<std::string> cannotShare = {"ext2", "ext3", "ext4", "tmpfs", "vfat", "msdos", "exfat", "hfs"};
    if (found.bytes >= 100'000'000 && !cannotShare.contains(sourceMount->fileSystemType))
        if (auto warning = sharedStorageWarning({src}, found.bytes)) plan.notes.push_back(*warning);
    if (checks.storeNotes)
        for (auto& note : checks.storeNotes(src)) plan.notes.push_back(std::move(note));
    return {std::move(plan), ""};
}

namespace {

constexpr std::size_t kCopyChunk = 1024 * 1024;


// One copied file: the digest of what was read from the source, and its signature then.
struct CopiedFile {
    std::string digest;
    FileSig before;
    bool readBack = false;  // already read back and found the same while it was being written
};

// Reads a large file back from the drive a little behind its writer, on another core, so that
// verifying it costs no time of its own. Only what the writer has finished is read.
class ReadBehind {
public:
    explicit ReadBehind(int fd) : fd_(fd), digest_(digest::newSHA256()), buffer_(kCopyChunk) {
        thread_ = std::thread([this] { run(); });
    }
    ~ReadBehind() { stop(); }
    ReadBehind(const ReadBehind&) = delete;
    ReadBehind& operator=(const ReadBehind&) = delete;

    void wrote(std::int64_t total) {
        {
            std::lock_guard guard(lock_);
            written_ = total;
        }
        changed_.notify_one();
    }

    // The digest of everything read back; none when a read failed.
    std::optional<std::string> finish() {
        stop();
        if (failed_ || !digest_) return std::nullopt;
        return digest::finishHex(digest_.get());
    }

private:
    void stop() {
        {
            std::lock_guard guard(lock_);
            done_ = true;
        }
        changed_.notify_one();
        if (thread_.joinable()) thread_.join();
    }

    void run() {
        std::int64_t at = 0;
        for (;;) {
            std::int64_t until = 0;
            bool last = false;
            {
                std::unique_lock guard(lock_);
                changed_.wait(guard, [&] { return written_ > at || done_; });
                until = written_;
                last = done_;
            }
            while (at < until) {
                const auto want = static_cast<std::size_t>(std::min<std::int64_t>(until - at, kCopyChunk));
                const ssize_t got = ::pread(fd_, buffer_.data(), want, static_cast<off_t>(at));
                if (got < 0 && errno == EINTR) continue;
                if (got <= 0 || !digest_) {
                    failed_ = true;
                    return;
                }
                EVP_DigestUpdate(digest_.get(), buffer_.data(), static_cast<std::size_t>(got));
                at += got;
            }
            if (last) return;
        }
    }

    int fd_;
    digest::Digest digest_;
    std::vector<unsigned char> buffer_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::int64_t written_ = 0;
    bool done_ = false;
    bool failed_ = false;
    std::thread thread_;
};

// Files from this size on are read back while they are written.
constexpr std::int64_t kReadBehindBytes = 32 * 1024 * 1024;

class TreeCopy {
public:
    TreeCopy(const std::function<void(std::int64_t)>& progress) : progress_(progress), chunk_(kCopyChunk) {}

    std::map<std::string, CopiedFile> files;  // by path relative to the top, "" for a top file
    std::string problem;

    // Copies `name` in `fromDir` to `toName` in `toDir`, links as links, without following any.
    bool copy(int fromDir, const std::string& name, int toDir, const std::string& toName, const std::string& relative) {
        struct stat st {};
        if (::fstatat(fromDir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return fail(relative, errno);
        if (S_ISLNK(st.st_mode)) return copyLink(fromDir, name, toDir, toName, st, relative);
        if (S_ISDIR(st.st_mode)) return copyFolder(fromDir, name, toDir, toName, relative);
        if (S_ISREG(st.st_mode)) return copyFile(fromDir, name, toDir, toName, relative);
        problem = relative + " is neither a file, a folder nor a shortcut";
        return false;
    }

private:
    bool fail(const std::string& relative, int error) {
        problem = (relative.empty() ? std::string("the item") : relative) + ": " + std::strerror(error);
        return false;
    }

    // The times as the platform layer reads them: the field names of struct stat differ.
    static std::array<struct timespec, 2> timesOf(const platform::FileFacts& facts) {
        struct timespec accessed {}, modified {};
        accessed.tv_sec = static_cast<time_t>(facts.accessedSeconds);
        modified.tv_sec = static_cast<time_t>(facts.modifiedSeconds);
        modified.tv_nsec = static_cast<long>(facts.modifiedNanoseconds);
        return {accessed, modified};
    }

    static void keepOwnerAndTimes(int fd, const platform::FileFacts& facts) {
        static const bool asRoot = ::geteuid() == 0;  // only root can give a file to its owner
        if (asRoot) (void)::fchown(fd, facts.uid, facts.gid);
        ::fchmod(fd, static_cast<mode_t>(facts.mode & 07777));
        const auto times = timesOf(facts);
        ::futimens(fd, times.data());
    }

    bool copyLink(int fromDir, const std::string& name, int toDir, const std::string& toName, const struct stat& st,
                  const std::string& relative) {
        std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 4096) + 1, '\0');
        const ssize_t length = ::readlinkat(fromDir, name.c_str(), target.data(), target.size());
        if (length < 0 || static_cast<std::size_t>(length) >= target.size()) return fail(relative, length < 0 ? errno : ENAMETOOLONG);
        target.resize(static_cast<std::size_t>(length));
        if (::symlinkat(target.c_str(), toDir, toName.c_str()) != 0) return fail(relative, errno);
        if (const auto facts = platform::entryFacts(fromDir, name)) {
            const auto times = timesOf(*facts);
            ::utimensat(toDir, toName.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
        }
        return true;
    }

    bool copyFolder(int fromDir, const std::string& name, int toDir, const std::string& toName,
                    const std::string& relative) {
        if (::mkdirat(toDir, toName.c_str(), 0700) != 0) return fail(relative, errno);
        Fd from(::openat(fromDir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        Fd to(::openat(toDir, toName.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!from.open() || !to.open()) return fail(relative, errno);
        const int listing = ::dup(from.get());
        if (listing < 0) return fail(relative, errno);
        for (const auto& entry : readFolderEntries(listing))
            if (!copy(from.get(), entry.name, to.get(), entry.name, relative.empty() ? entry.name : relative + "/" + entry.name))
                return false;
        if (const auto facts = platform::fstatFacts(from.get())) keepOwnerAndTimes(to.get(), *facts);  // last: filling it changes its times
        return true;
    }

    bool copyFile(int fromDir, const std::string& name, int toDir, const std::string& toName, const std::string& relative) {
        Fd from(::openat(fromDir, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!from.open()) return fail(relative, errno);
        const auto facts = platform::fstatFacts(from.get());
        if (!facts) return fail(relative, errno);
        if (!facts->isRegularFile()) return fail(relative, EINVAL);
        Fd to(::openat(toDir, toName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!to.open()) return fail(relative, errno);
        digest::Digest digest = digest::newSHA256();
        if (!digest) return fail(relative, ENOMEM);
        Fd back(facts->size >= kReadBehindBytes
                                  ? ::openat(toDir, toName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC)
                                  : -1);
        std::unique_ptr<ReadBehind> behind = back.open() ? std::make_unique<ReadBehind>(back.get()) : nullptr;
        std::int64_t total = 0;
        for (;;) {
            const ssize_t got = ::read(from.get(), chunk_.data(), chunk_.size());
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return fail(relative, errno);
            if (got == 0) break;
            EVP_DigestUpdate(digest.get(), chunk_.data(), static_cast<std::size_t>(got));
            for (ssize_t written = 0; written < got;) {
                const ssize_t put = ::write(to.get(), chunk_.data() + written, static_cast<std::size_t>(got - written));
                if (put < 0 && errno == EINTR) continue;
                if (put <= 0) return fail(relative, put < 0 ? errno : EIO);
                written += put;
            }
            copied_ += got;
            total += got;
            if (behind) behind->wrote(total);
            if (progress_) progress_(copied_);
        }
        keepOwnerAndTimes(to.get(), *facts);
        // Closed here rather than by its owner: a full drive may only say so now.
        const int written = to.release();
        if (::close(written) != 0) return fail(relative, errno);
        const std::string read = digest::finishHex(digest.get());
        if (behind && behind->finish() != read) return fail(relative, EIO);  // the drive gave back other bytes
        files[relative] = {read, fileSigOf(*facts), behind != nullptr};
        return true;
    }

    const std::function<void(std::int64_t)>& progress_;
    std::vector<unsigned char> chunk_;
    std::int64_t copied_ = 0;
};

std::string joined(const std::string& top, const std::string& relative) {
    return relative.empty() ? top : top + "/" + relative;
}

// Every copied file not yet read back, read back from the drive against the digest of what was
// read from the source, both cores sharing the files.
bool readsBackTheSame(const std::string& copy, const std::map<std::string, CopiedFile>& files) {
    std::vector<const std::pair<const std::string, CopiedFile>*> all;
    for (const auto& file : files)
        if (!file.second.readBack) all.push_back(&file);
    std::atomic<std::size_t> next = 0;
    std::atomic<bool> same = true;
    auto work = [&] {
        for (std::size_t i; same && (i = next++) < all.size();)
            if (fullHash(joined(copy, all[i]->first)) != all[i]->second.digest) same = false;
    };
    std::thread helper(work);
    work();
    helper.join();
    return same;
}

void removeQuietly(const std::string& path) {
    const int parent = ::open(deletingLastPathComponent(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parent < 0) return;
    struct stat st {};
    if (::fstatat(parent, lastPathComponent(path).c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISDIR(st.st_mode)) removeTreeNoFollow(parent, lastPathComponent(path), st.st_dev);
        else ::unlinkat(parent, lastPathComponent(path).c_str(), 0);
    }
    ::close(parent);
}

// What a killed move left in the destination folder.
void sweepWorkingCopies(const std::string& folder) {
    for (const auto& entry : readFolderEntries(folder))
        if (entry.name.ends_with(kMoveWorkingSuffix)) removeQuietly(appendingPathComponent(folder, entry.name));
}

MoveOutcome failed(std::string sentence) {
    MoveOutcome outcome;
    outcome.sentence = std::move(sentence);
    return outcome;
}

}  // namespace

MoveOutcome performMove(const MovePlan& plan, const std::function<void(std::int64_t)>& progress) {
    if (::mkdir(plan.folder.c_str(), 0755) != 0 && errno != EEXIST)
        return failed(plan.folder + " could not be made: " + std::strerror(errno) + ". Nothing was changed.");
    sweepWorkingCopies(plan.folder);
    const std::string working = plan.dst + std::string(kMoveWorkingSuffix);

    Fd sourceParent(::open(deletingLastPathComponent(plan.src).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    Fd folder(::open(plan.folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!sourceParent.open() || !folder.open())
        return failed("The folders of the move could not be opened: " + std::string(std::strerror(errno)) +
                      ". Nothing was changed.");
    TreeCopy copy(progress);
    const bool copied = copy.copy(sourceParent.get(), lastPathComponent(plan.src), folder.get(), lastPathComponent(working), "");
    if (!copied) {
        removeQuietly(working);
        return failed("The copy failed (" + copy.problem + "); it was removed and nothing was changed.");
    }
    platform::syncFileSystem(plan.folder);
    std::map<std::string, FileSig> before, after;
    for (const auto& [relative, file] : copy.files) {
        before[relative] = file.before;
        if (const auto now = platform::lstatFacts(joined(plan.src, relative))) after[relative] = fileSigOf(*now);
    }
    if (sourceChangedDuringCopy(before, after)) {
        removeQuietly(working);
        return failed(plan.src + " changed while it was being copied; the copy was removed and nothing was changed. "
                      "Try again when nothing is using it.");
    }
    if (!readsBackTheSame(working, copy.files)) {
        removeQuietly(working);
        return failed("The copy on the drive did not read back the same as " + plan.src +
                      "; it was removed and nothing was changed.");
    }

    // The final name: the planned one, or a fresh one if something took it meanwhile.
    std::string dst = plan.dst;
    for (int n = 2;; ++n) {
        const int error = platform::renameNoReplace(folder.get(), lastPathComponent(working), folder.get(), lastPathComponent(dst));
        if (error == 0) break;
        if (error != EEXIST || n > 1000) {
            removeQuietly(working);
            return failed("The copy could not be given its name on the drive: " + std::string(std::strerror(error)) +
                          ". Nothing was changed.");
        }
        dst = plan.dst + " " + std::to_string(n);
    }

    MoveOutcome outcome;
    outcome.record = {Clock::now(), plan.title, plan.src, dst, plan.bytes, true, false};
    Ledger::beginMove(outcome.record);
    // From here the verified copy is journalled: whatever stops this, the repair finishes it.
    outcome.pending = true;
    const auto source = platform::lstatFacts(plan.src);
    int removal = 0;
    if (source && source->isDirectory())
        removal = removeTreeNoFollow(sourceParent.get(), lastPathComponent(plan.src), static_cast<dev_t>(source->device));
    else if (::unlinkat(sourceParent.get(), lastPathComponent(plan.src).c_str(), 0) != 0)
        removal = errno;
    if (removal != 0) {
        try {
            Ledger::moveToTrash(plan.src);
        } catch (...) {
            outcome.sentence = "The copy is safe at " + dst + ", but " + plan.src + " could not be removed (" +
                               std::strerror(removal) + "). Run orvane repair to finish the move.";
            return outcome;
        }
    }
    if (::symlinkat(dst.c_str(), sourceParent.get(), lastPathComponent(plan.src).c_str()) != 0) {
        outcome.sentence = "The copy is safe at " + dst + ", but the shortcut at " + plan.src +
                           " could not be made. Run orvane repair to finish the move.";
        return outcome;
    }
    Ledger::appendMove(outcome.record);
    Ledger::endMove(dst);
    Ledger::log("MOVE " + plan.src + " -> " + dst);
    Ledger::flush();
    outcome.moved = true;
    outcome.pending = false;
    outcome.sentence = "Moved " + plan.title + " (" + fmtBytes(plan.bytes) + ") to " + dst + "; " + plan.src +
                       " is now a shortcut to it.";
    return outcome;
}

}  // namespace orvane
