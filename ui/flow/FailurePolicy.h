#pragma once

/// What a run of the update flow does after it failed. Pure functions: the window owns the counts,
/// asks here, and acts on the answer.
namespace FailurePolicy
{
/// Retries are made while their count is at most this, so there are four in a row.
constexpr int LastRetry = 3;

enum class Failure {
    PackageWrong,     ///< the package is missing or doesn't match its checksum
    ExtractionFailed, ///< the package could not be unpacked
    FileMissing,      ///< unpacked, but a listed file is not in the game folder
    FileWrong,        ///< unpacked, but a listed file doesn't match its checksum
};

enum class Step {
    Report,    ///< tell the user and end the run
    Retry,     ///< a new automatic run at once
    FetchAnew, ///< ask the server once more; the run stays whose it was
    ShowBadge, ///< end the run, leave the package alone for some checks, show that it waits
    GiveUp,    ///< the same, and record that the last check failed
};

/// The failing run and what led to it.
struct Run {
    bool isAutomatic = false; ///< otherwise somebody waits for its outcome
    int retries = 0;          ///< automatic retries since the last verified installation
    int wrongPackages = 0;    ///< packages in a row that did not match their checksum
};

Step after(Failure failure, const Run &run);
} // namespace FailurePolicy
