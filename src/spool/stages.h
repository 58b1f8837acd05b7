#pragma once
// The stages of the processing pass. Every stage runs its statements through the pass's
// error handler (PassRun::Step) and sets the progress markers of its part.

#include <string>

#include "spool/pass_run.h"

namespace quellor {

// Envelope recipient line: recipient address, mailbox name and request address.
void ReadRecipientLine(PassRun& p, const std::string& line);
// The pass's own header reading (while the subject is empty): DEBUG/ copy, stripping of a
// leading "From " line, the subject and the wait identifier (markers 8 to 13).
void ReadHeaders(PassRun& p);

// Bounce of a validation request from a postmaster: purge the held pair (marker 4).
void BounceStage(PassRun& p);
// Removes the held pair WAIT/<s.user>/<id> when it is there, counts it purged, lists it (DEBUG
// ON) as `origin` " - Orig." user/id and writes `line` to the activity log: what a bounce does.
void PurgeHeld(PassRun& p, const std::string& id, const std::string& origin,
               const std::string& line);
// Incoming and outgoing domain counts and automatic local domains (markers 6, 7).
void CountDomains(PassRun& p);
// Validation replies: release and white-listing, or invalid validations (markers 15 to 20).
void ReplyStage(PassRun& p);
// Releases every message of `held_sender` waiting in WAIT/<s.user>/ for the recipient address
// s.recipient into LOCAL/ and white-lists that sender (markers 16 to 19): what a valid reply does.
void ReleaseHeldSender(PassRun& p, const std::string& held_sender);
// Per-user configuration and mode (markers 21 to 25).
void RouteRecipient(PassRun& p);

// Delivery routes to LOCAL/.
enum class DeliveryRoute { kLearn, kWhiteListed, kForwardConfigured, kForwardUnconfigured };
void Deliver(PassRun& p, DeliveryRoute route);
// Hold in WAIT/<user>/ and the validation-request throttle (markers 2501 to 2506, 26, 27).
void Hold(PassRun& p, bool validation_off);
// Why the sender of the current message is a robot that must get no validation request
// (null sender, postmaster, Auto-Submitted, Precedence bulk/junk/list, List-Id,
// List-Unsubscribe); "" for a person. Headers are read from IN/ with the message component.
std::string RobotMail(PassRun& p);
// Validation request into OUT/ (markers 28 to 30).
void ComposeRequest(PassRun& p);
// New-user provisioning from SYSTEM/NEW_USER.CONF (marker 34).
void Provision(PassRun& p);

}  // namespace quellor
