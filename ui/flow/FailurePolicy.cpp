#include "FailurePolicy.h"

FailurePolicy::Step FailurePolicy::after(Failure failure, const Run &run)
{
    // The server may have changed between the manifest and the package, whoever started the run.
    if (failure == Failure::PackageWrong)
        return run.wrongPackages > LastRetry ? Step::GiveUp : Step::FetchAnew;
    if (!run.isAutomatic)
        return Step::Report;
    // The package and the list of its files disagree: fetching both again changes nothing.
    if (failure == Failure::FileWrong)
        return Step::ShowBadge;
    return run.retries > LastRetry ? Step::GiveUp : Step::Retry;
}
