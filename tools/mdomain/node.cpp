// mdomain node: the machines that share a key store. One of them manages the domains and publishes;
// the others pull what is published and answer from it.
#include "tools/mdomain/node.h"

namespace mdomain {
namespace {

const Register kNode({
    "node",
    "Machines that share a key store: which one manages the domains, and what the others have",
    {
        {"manage",
         "Manage the domains on this machine, the first of those that share the key store",
         "For a key store to which nothing was ever published, or that lost all of it. What is "
         "published then is shown first. Where this machine manages already, it publishes what "
         "the store lacks.",
         Effect::kDestroys,
         {},
         ManageHere,
         "There is no --dry-run, which leaves the shared key store alone: mdomain node status "
         "tells."},
        {"join",
         "Let this machine pull what another one publishes",
         "Its own files are copied to a folder kept-TIME beside them first. Refused where it has "
         "domains, keys or files that the key store lacks. A machine without domains also joins "
         "with its first mdomain node pull.",
         Effect::kChangesHere,
         {Flag("--discard", "Also where this machine has what the key store lacks")},
         JoinManager,
         "There is no --dry-run, which leaves the shared key store alone: mdomain node status "
         "tells."},
        {"pull",
         "Bring what is published to this machine",
         "A reader sees the old or the new file, whole. After it the maps of blind copies are made "
         "anew where one of their sources was replaced, users whose addresses changed are flagged, "
         "and the programs in /etc/mailserver-domain/hooks/after-pull.d run. Refused on a machine "
         "that manages, and where the publication is older than what this machine has. With "
         "--watch it goes on until it is ended or this machine no longer pulls, shows what "
         "changed, and waits for a key store that is away.",
         Effect::kReads,
         {Flag("--watch", "Go on and pull what is published later"),
          Number("--interval",
                 "Seconds between two looks at the key store, which also tells by itself (5)"),
          Flag("--accept-older", "Take an older publication, with --watch once")},
         PullHere},
        {"status",
         "Show what each machine has of what is published",
         "States: current; N behind; older term; unpublished changes; file KEY is missing or "
         "differs. This machine's files and keys are compared with the key store, the others count "
         "with what they said when they last pulled, at the time shown. Ends with status 1 unless "
         "all are current.",
         Effect::kReads,
         {},
         ShowMachines},
        {"role",
         "Print what this machine is among those that share a key store",
         "One word: manages, pulls, replaced (another machine took over), undecided (nobody has "
         "said yet), or alone where the key store is not shared.",
         Effect::kReads,
         {},
         TellRole},
        {"check",
         "Mend what can be mended, and tell what may lose what is published",
         "For a timer on every machine; --quiet says nothing when all is in order. The one that "
         "manages reads everything in the key store "
         "back and publishes what is missing or damaged; the others pull what they lack. Settings "
         "of the server that may lose its content are told. Ends with status 0 when all is in "
         "order or mended, and with 1 when not, when there is such a risk, or when the key store "
         "does not answer.",
         Effect::kChangesHere,
         {},
         CheckMachine,
         "There is no --dry-run, which leaves the shared key store alone: mdomain node status "
         "tells."},
        {"take-over",
         "Manage the domains on this machine instead of another",
         "Shows what each side has that the other lacks, copies this machine's files to a folder "
         "kept-TIME beside them, pulls what is published and goes on from it. From then on "
         "commands that change something are refused on the other machine. With --keep this "
         "machine's files are published as they are. Refused where something would be lost with "
         "that: changes here that were never published, or, with --keep, what only the key store "
         "has.",
         Effect::kDestroys,
         {Flag("--keep", "Publish what this machine has, and do not pull"),
          Flag("--discard", "Also where something is lost with that")},
         TakeOver,
         "There is no --dry-run, which leaves the shared key store alone: mdomain node status "
         "tells, "
         "and the question shows what would be lost."},
    },
});

}  // namespace
}  // namespace mdomain
