#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Takes each defence away in turn and sees that its tests fail then.

usage: without_defences.py [--fit | WORDS...]

With --fit, only sees whether each row still fits the source; with words, only the defences whose title has one of
them are taken away. The tracked files, as they stand, are copied to
build/without-defences and built and changed there; the checkout stays as it is. Needs root, as the tests of
the privileged road do. Ends with 1 if a test did not notice, or if a row does not fit the source any more.
"""
import filecmp
import functools
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from typing import NamedTuple

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
COPY = os.path.join(SOURCE, "build/without-defences")
BUILD = os.path.join(COPY, "build/dev")
ROOMS = ("acl", "cli", "client", "helpers", "lists", "platform", "service", "size")
TIME_LIMIT = 240  # one test, a watchdog's minute included


class Defence(NamedTuple):
    title: str
    text: str      # stands once in all the sources
    without: str   # takes its place
    tests: tuple   # names of ctest; behind one in Python, a method of its classes


def privileged(*methods):
    return tuple(f"privileged {method}" for method in methods)


def installer(*methods):
    return tuple(f"install_helper Installer.{method}" for method in methods)


def undo(*methods):
    return tuple(f"acl_list Undo.{method}" for method in methods)


# What is built for a test: the program that has its suite.
PRIVILEGED_ROAD = ("morvane", "privileged_helper", "policy_agent", "bare_client", "shifted_clock", "file_service")
PROGRAMS = {
    "privileged": PRIVILEGED_ROAD,
    "policy": (*PRIVILEGED_ROAD, "policy_stand_in"),
    "session": (*PRIVILEGED_ROAD, "authorization_references"),
    "installation": PRIVILEGED_ROAD,
    "install_helper": ("privileged_helper",),
    "PosixAclReader": ("posix_acl_test",),
    "AclRequestsOnBehalf": ("acl_requests_test",),
    "AclRequestsOfAFile": ("acl_requests_test",),
    "PosixAclReduction": ("lists_test",),
    "PropagateRequests": ("propagate_requests_test",),
    "AclPropagationTest": ("propagate_requests_test",),
    "RenameRequests": ("rename_requests_test",),
    "RenameFailures": ("rename_requests_test",),
    "Nfs4Storing": ("nfs4_storing_test",),
    "AclEditor": ("client_test",),
    "Editing": ("cli_test",),
    "AnItemList": ("lists_test",),
    "SizeRequestsTest": ("size_requests_test",),
    "SizeWalkerMemoryTest": ("size_walker_memory_test",),
    "TreeWalkTest": ("tree_walk_test",),
    "MVConnectorTest": ("service_test",),
    "ItemFailures": ("service_test",),
    "MovedFoldersTest": ("tree_walk_test",),
    "HungMountTest": ("asked_work_test",),
    "SupervisedWork": ("tree_walk_test",),
    "DirectoryRequestsTest": ("size_requests_test",),
    "GuardedRequests": ("guarded_requests_test",),
    "HelperUnit": ("guarded_requests_test",),
    "RequestJournal": ("guarded_requests_test",),
    "LongWork": ("request_order_test",),
    "AskedWorkTest": ("asked_work_test",),
    "LongReduction": ("asked_work_test",),
    "LinuxStreamSocket": ("linux_connections_test",),
    "NSXPCConnectionWithoutMemory": ("xpc_allocation_test",),
    "NSXPCListenerWithoutMemory": ("xpc_allocation_test",),
    "NSKeyedArchiverWithoutMemory": ("archive_allocation_test",),
    "WriteOrderWithoutMemory": ("request_order_allocation_test",),
    "LongWorkWithoutMemory": ("request_order_allocation_test",),
    "ServiceProcess": ("xpc_test",),
    "MVConnectorWithServices": ("service_test",),
    "ReadinessWorkers": ("linux_connections_test",),
    "LinuxStreamSocketOfAnOlderKernel": ("linux_connections_test",),
    "WellKnownSocketTest": ("linux_connections_test",),
    "GrantAges": ("linux_grant_ages_test",),
    "GrantAgesInAFile": ("linux_grant_ages_test",),
    "NSKeyedUnarchiver": ("archive_test",),
    "FuzzCorpus": ("archive_test",),
    "LargeArray": ("archive_test",),
    "MVAclEntryCoding": ("test_acl",),
    "MVAclOriginCoding": ("test_acl",),
    "StoredLists": ("lists_test",),
    "acl_list": ("morvane", "file_service"),
    "KDLocalizedStringTest": ("host_test",),
    "PhraseTest": ("foundation_test",),
    "EndOfTheProcess": ("linux_process_end_test",),
    "NSXPCCoding": ("xpc_test",),
    "FrameParser": ("xpc_test",),
    "FrameReader": ("xpc_test",),
    "HostilePeer": ("xpc_test",),
    "ServedStream": ("xpc_test",),
    "NSXPCConnection": ("xpc_test",),
    "NSXPCListener": ("xpc_test",),
    "Outbox": ("xpc_test",),
    "LeavingClients": ("xpc_allocation_test",),
    "Clock": ("dispatch_test",),
}

# Several rows for a defence that can be taken away in several ways.
DEFENCES = (
    # Lists.
    Defence("A list that has changed since it was read is not replaced.",
            "origin->values().digest != now.digest;",
            "false;",
            ("AclRequestsOfAFile.AListThatHasChangedSinceItWasReadIsNotReplaced",)),
    Defence("More names than a list holds are refused before anybody is looked up.",
            "return users_.size() + groups_.size() <= maxPosixNames;",
            "return true;",
            ("PosixAclReduction.MoreNamesThanAListHoldsAreRefusedBeforeAnybodyIsLookedUp",)),
    Defence("A new mask lets nothing through that the old one held back.",
            "rights = rights | (stored - mask);",
            "rights = rights | stored;",
            ("PosixAclReduction.ANewMaskLetsNothingThroughThatTheOldOneHeldBack",)),
    Defence("A denial for a group in new items bears on the member who makes one.",
            "if (part_ == Part::defaults)\n            lose(takeFrom(maker)",
            "if (false)\n            lose(takeFrom(maker)",
            ("PosixAclReduction.ADenialForAGroupInsideIsLostForTheMemberWhoMakesAnItem",)),
    Defence("A denial for the creator takes from the owner, whatever stands beside the class.",
            "return part_ == Part::access && !said.empty() && said == saidOf(statements_);",
            "return part_ == Part::access && !said.empty();",
            ("PosixAclReduction.ADenialForTheCreatorIsOneForTheOwnerThoughAnEntryStandsBesideTheClass",)),
    Defence("An entry beside its class gets nothing that everyone is allowed.",
            "if (deny || !isBeside(CBPosixGroup{gid}))\n            decisions",
            "decisions",
            ("PosixAclReduction.AnEntryBesideItsClassGetsNothingThatEveryoneIsAllowed",)),
    Defence("A denial for a group does not make the owner's class of an entry beside it.",
            "if (!isBeside(CBPosixUser{uid}))\n            add(uid, decisions);",
            "add(uid, decisions);",
            ("PosixAclReduction.ADenialForAGroupLeavesTheEntryOfItsMemberBesideTheOwnersClassAsItIs",)),
    Defence("A denial beside a class of which nothing else is said is one for the class.",
            "[&](const PosixStatement& s) { return s.flat && s.who == who; }))",
            "[&](const PosixStatement& s) { return s.flat || s.who == who; }))",
            ("PosixAclReduction.AnEntryBesideAClassOfWhichNothingElseIsSaidIsThatOfTheClass",)),
    Defence("A nearest list is one that a service takes as it is.",
            "!next.losses.empty() && next.acl != reduced.acl;",
            "false;",
            ("AnItemList.HoldsItsNearestListThoughADenialForAGroupIsShownInIt",)),
    Defence("An edit is not made on an entry that another program has changed.",
            "if (!isTaken[i] && current.read_[i].asRead == asRead) {",
            "if (!isTaken[i] && !asRead.empty()) {",
            ("Editing.RefusesAScriptThatChangesWhatAnotherProgramHasChanged",
             "Editing.FindsTheEntryOfAScriptThoughAnotherHasItsNumberNow")),
    Defence("A denial that a user makes of an entry stands before what allows.",
            "keepsPlace() const { return entry->tag() == tag && entry->uuid() == uuid; }",
            "keepsPlace() const { return true; }",
            ("AclEditor.AnEntryThatIsADenialNowComesFirst",
             "Editing.PutsAnEntryThatIsADenialNowBeforeAllThatAllow")),
    Defence("So does one that is made again on what another program has written.",
            "read != known.end() ? read->second",
            "false ? read->second",
            ("AclEditor.AnEditedEntryStillCountsAsEditedInTheListThatWasReadAgain",
             "Editing.PutsADenialFirstInTheListThatAnotherProgramHasMade")),
    Defence("A list of new entries alone replaces no list that has changed.",
            "if (!read_.empty() && !readAs(entry))",
            "if (false)",
            ("Editing.DoesAScriptToTheListThatAnotherProgramHasMadeMeanwhile",)),
    Defence("What a peer tells of a stored list is a list that a kernel would store.",
            "if (!isNext || rights > PosixEverything || (isNamed && id == nobodyNamed))",
            "if (false && !isNext)",
            ("StoredLists.BytesThatNoKernelWouldStoreAreNoList",)),
    Defence("A stored list that a peer tells has a bound.",
            "if (list.size() > maxStoredList)",
            "if (false)",
            ("MVAclOriginCoding.TheListsAsTheyAreStoredComeWithIt",)),
    # Notes for --undo.
    Defence("Notes that belong to another user are not applied.",
            "if (found.st_uid != geteuid() && (owners == Owners::thisUser || found.st_uid != 0))",
            "if (false && owners == Owners::thisUser)",
            undo("test_notes_of_another_user_are_neither_applied_nor_added_to")),
    Defence("Notes that another user can write to are not applied.",
            "if (!mayBeShared && (found.st_mode & (S_IWGRP | S_IWOTH)) != 0)",
            "if (false && !mayBeShared)",
            undo("test_notes_that_others_can_have_written_are_not_applied")),
    Defence("No link leads to the notes.",
            "openat(fd.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)",
            "openat(fd.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)",
            undo("test_a_link_in_the_place_of_the_notes_is_left_alone")),
    Defence("A list is given back only to the very item that had it.",
            "if (work.item && *work.item != identityOfFile(path))",
            "if (false)",
            undo("test_what_has_taken_the_place_of_a_changed_item_is_not_given_its_list")),
    Defence("A list that somebody else has changed since is not taken back.",
            "!work.onlyOf.empty() && work.onlyOf != (*read)->origin()->values().digest;",
            "false;",
            undo("test_what_somebody_else_has_changed_since_is_named_and_stays")),
    Defence("A change that could not be noted is not confused with the one before.",
            "name_ = notes_->markAsLost(name_);",
            "notes_->remove(name_);",
            undo("test_what_could_not_be_noted_is_not_confused_with_the_change_before")),
    # Paths.
    Defence("No symbolic link on the way is followed for another user.",
            "how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;\n        descriptor =",
            "how.resolve = 0;\n        descriptor =",
            ("RenameRequests.TheRuleForRootFollowsNoLinkOnTheWay",
             "SizeRequestsTest.OnBehalfOfAnotherNoLinkOnTheWayIsFollowed",
             "DirectoryRequestsTest.ALinkToAFolderIsFollowedButNotOnBehalfOfAnother",
             "PropagateRequests.OnBehalfOfAUserNoLinkLeadsToTheFolder",
             *privileged("Attackers.test_a_symbolic_link_on_the_way_is_refused",
                         "Attackers.test_a_link_swapped_in_during_the_check_is_refused",
                         "Attackers.test_a_folder_swapped_for_a_link_during_the_check_is_refused"))),
    Defence("The helper's handlers work under the rule for other users.",
            "static_cast<std::uint32_t>(client->effectiveUserIdentifier().value()),",
            "std::nullopt,",
            privileged("Attackers.test_a_link_swapped_in_during_the_check_is_refused",
                       "Attackers.test_a_hard_link_to_a_file_of_another_is_not_changed")),
    Defence("An item is used through its descriptor, whatever has its path by then.",
            "return AclItem(*std::move(item));",
            "AclItem opened(*std::move(item));\n"
            "    opened.path_ = path;\n"
            "    return opened;",
            ("PosixAclReader.AnItemThatWasOpenedIsReadWhateverHasItsPathByThen",)),
    Defence("What is below a folder is opened without following a link.",
            "how.flags = static_cast<std::uint64_t>(flags | O_NOFOLLOW | O_CLOEXEC);\n"
            "    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;",
            "how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);\n"
            "    how.resolve = RESOLVE_NO_XDEV;",
            ("AclPropagationTest.AFileThatHasBecomeALinkSinceItWasListedIsLeftAlone",)),
    Defence("Other mounts are not entered, also those of the same file system.",
            "return device == other.device && mount == other.mount;",
            "return device == other.device;",
            ("TreeWalkTest.ABindMountIsNotEntered",)),
    Defence("A file that another one is mounted on is not changed.",
            "how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;",
            "how.resolve = RESOLVE_NO_SYMLINKS;",
            ("TreeWalkTest.ABindMountIsNotEntered",
             "HungMountTest.TheFolderAboveItIsPropagatedAndCountedWithoutWaiting")),
    Defence("A file system that does not answer is not waited for by the folder above it.",
            "(askFileSystem ? AT_STATX_SYNC_AS_STAT : AT_STATX_DONT_SYNC)",
            "(askFileSystem ? AT_STATX_SYNC_AS_STAT : AT_STATX_SYNC_AS_STAT)",
            ("HungMountTest.TheFolderAboveItIsPropagatedAndCountedWithoutWaiting",)),
    Defence("Work that waits for a file system is left when its client leaves.",
            "if (!progress->ended.wait_for(lock, supervision.grace, isDone)) {",
            "progress->ended.wait(lock, isDone);\n        if (!isDone()) {",
            ("HungMountTest.AClientThatLeavesFreesItsRequestAndOthersGoOn",)),
    Defence("Work that was left takes places of its user.",
            "return found != counts_.end() && found->second >= maxWorkLeft;",
            "return false && found != counts_.end() && found->second >= maxWorkLeft;",
            ("SupervisedWork.WorkThatDoesNotEndCostsItsOwnUserPlaces",
             "HungMountTest.AClientThatLeavesFreesItsRequestAndOthersGoOn")),
    Defence("Work whose client cannot be asked goes on.",
            "        } catch (const std::exception&) {\n            goesOn = true;",
            "        } catch (const std::logic_error&) {\n            goesOn = true;",
            ("SupervisedWork.WhereItsClientCannotBeAskedItGoesOn",)),
    Defence("Descriptors are let go where a tree is deep.",
            "folders_[folders_.size() - 1 - heldLast].descriptor = FileDescriptor();",
            "{}",
            ("TreeWalkTest.ATreeOfAnyDepthIsPropagatedWholeWithFewDescriptors",
             "TreeWalkTest.ATreeOfAnyDepthIsCountedWholeWithFewDescriptors")),
    Defence("A folder that was let go is the same when the walk comes back.",
            "if (idOf(status) != id)",
            "if (false && idOf(status) != id)",
            ("MovedFoldersTest.WhatCannotBeFoundAgainIsNamedAndNothingElseTakenForIt",)),
    Defence("The way down again is by names where a folder has been moved.",
            "if (!opened)\n        opened = descend(target);",
            "",
            ("MovedFoldersTest.EverythingIsReachedAlthoughAFolderWasMovedMeanwhile",)),
    Defence("A hard link to another's file is not changed.",
            "return status.st_nlink > 1 && status.st_uid != *rule.onBehalfOf ? EMLINK : 0;",
            "return 0;",
            ("AclRequestsOnBehalf.AFileWithSeveralNamesIsChangedForItsOwnerOnly",
             *privileged("Attackers.test_a_hard_link_to_a_file_of_another_is_not_changed"))),
    Defence("A hard link to another's file below a folder is not changed.",
            "return EMLINK;",
            "{}",
            ("PropagateRequests.OnBehalfOfAUserAFileWithFurtherNamesIsLeftAlone",)),
    Defence("A file that gets another owner or group loses setuid and setgid.",
            "!S_ISDIR(now.st_mode) && (now.st_mode & runsAsOther) != 0",
            "false",
            ("PropagateRequests.AProgramThatGetsAnotherOwnerDoesNotRunAsThatOne",)),
    Defence("Devices, FIFOs and sockets are not changed for another user.",
            "if (!S_ISREG(status.st_mode))\n        return EPERM;",
            "if (!S_ISREG(status.st_mode))\n        return 0;",
            ("AclRequestsOnBehalf.OnlyFilesAndFoldersAreChanged",)),

    # What a network mount does not tell.
    Defence("A file that cannot lose its old name is not given a new one.",
            "(in.st_mode & S_ISVTX) != 0 &&",
            "user == static_cast<uid_t>(-1) && (in.st_mode & S_ISVTX) != 0 &&",
            ("RenameFailures.AFileThatCannotLoseItsOldNameDoesNotGetTheNewOne",)),
    Defence("A server that makes differences up costs a bound.",
            "if (lost_.size() != maxLost)",
            "if (maxLost != 0)",
            ("AclPropagationTest.AServerThatMakesLossesUpCostsABound",)),
    Defence("The sizes of folders in one another cost no more than those of as many beside one another.",
            "    hardLinks_.emplace(status.stx_ino, to);",
            "    for (auto at = to; at != end; at = states_[at].within)\n"
            "        hardLinks_.emplace(status.stx_ino, at);",
            ("SizeWalkerMemoryTest.AHardLinkedFileTakesALittleHoweverManyFoldersCountIt",)),
    Defence("A tree of items that fail costs a bound.",
            "(first.size() < maxFailuresKept && pathBytes_",
            "(first.size() < 100 * maxFailuresKept && pathBytes_",
            ("TreeWalkTest.AllFailuresAreCountedAndABoundOfThemIsKept",
             "AclPropagationTest.OfAMillionFailuresABoundIsTold")),
    Defence("The paths of items that fail cost a bound.",
            "pathBytes_ + path.size() <= maxFailurePathBytes)",
            "pathBytes_ + path.size() <= 100 * maxFailurePathBytes)",
            ("TreeWalkTest.ThePathsOfTheFailuresThatAreKeptHaveABound",)),
    Defence("No service has a host take the names of more items than a person looks through.",
            "failures.errors.erase(endOfNamed(failures.errors), failures.errors.end());",
            "static_cast<void>(endOfNamed(failures.errors));",
            ("ItemFailures.OfMoreThanAThousandTheFirstAreNamedAndAllCounted",)),
    Defence("No service has a host count more items than a tree can have, or less than none.",
            "std::clamp<std::int64_t>(*count, 0, most)",
            "(*count < most ? *count : *count)",
            ("ItemFailures.CountsThatNoTreeCanHaveAreNotBelieved",)),
    Defence("No service can have a count be negative.",
            "return static_cast<std::uint64_t>(std::max<std::int64_t>(told, 0));",
            "return static_cast<std::uint64_t>(told);",
            ("MVConnectorTest.CountsGoToAConnectorThatWantsThem",)),
    Defence("A denial that a server drops is told.",
            "now.granted & want.denied & ~ofEveryone_.granted",
            "0",
            ("Nfs4Storing.ADenialThatIsNotStoredIsToldOfWhomItWasFor",)),
    Defence("A denial is not charged to whoever stands behind it.",
            "if (denial->type != Nfs4Deny || !isNew(*denial))",
            "if (denial->type != Nfs4Alarm || !isNew(*denial))",
            ("Nfs4Storing.ANewDenialStandsBehindWhatOthersAreAllowed",)),

    # Who asks, and for what.
    Defence("A request reaches its handler only if its right is held.",
            "if (state == RightState::held)",
            "if (state == RightState::held || !selector.empty())",
            ("GuardedRequests.NoMessageReachesItsHandlerWithoutItsOwnRight",
             *privileged("Attackers.test_a_client_that_asked_for_no_right_reaches_no_handler"))),
    Defence("Each request needs the right of its own row.",
            "check(right)",
            'check(MVApplicationIdentifierPrefix ".GetFileAcl")',
            ("GuardedRequests.NoMessageReachesItsHandlerWithoutItsOwnRight",)),
    Defence("The arguments of a request are not looked at before its right is seen.",
            "            if (!asks(description, port))",
            "            NSKeyedUnarchiver(body, decoding).containsValueForKey(\"0\");\n"
            "            if (!asks(description, port))",
            ("GuardedRequests.TheArgumentsOfARequestWithoutItsRightAreNotLookedAt",)),
    Defence("An expired right opens nothing.",
            "if (state == RightState::held)",
            "if (state != RightState::notHeld)",
            ("GuardedRequests.AnExpiredRightOpensNothing",
             *privileged("Rights.test_every_right_expires_after_45_seconds"))),
    Defence("Refusals do not flood the log.",
            "if (refusals.whole > now + (refusalsAtOnce - 1) * refusalInterval)",
            "if (refusals.whole > now + 1000000 * refusalInterval)",
            ("RequestJournal.AFloodOfRefusalsMakesAFewLinesAndOneThatCountsTheRest",
             *privileged("Helper.test_a_flood_of_refusals_is_a_few_lines_and_one_that_counts_the_rest"))),
    Defence("The items of one request do not fill the log.",
            "if (bytes > bytesOfOneRequest) {",
            "if (false) {",
            ("RequestJournal.ARequestAboutManyItemsTakesABoundOfTheLogAndNothingHoldsTheirTexts",)),
    Defence("Nor does who has many user numbers.",
            "            user = otherUsers;",
            "            refusals_.clear();",
            ("RequestJournal.ManyUsersHaveFewLinesTogether",)),
    Defence("The log is told of work before it is done.",
            "    tellBegin(items);\n",
            "",
            ("GuardedRequests.TheLogTellsThatWorkBeginsAndHowItEnded",
             *privileged("Helper.test_the_log_is_told_who_has_asked_for_what_and_how_it_ended"))),
    Defence("The helper's end tells how far its work came.",
            "    journal.close(timeToStop);\n",
            "    (void)journal;\n",
            privileged("Helper.test_a_propagation_that_the_helpers_end_cuts_off_is_told_with_its_count")),
    Defence("A request that was answered does not keep an old helper, whatever still holds it.",
            "return request->hasEnded_; });",
            "return !request; });",
            ("RequestJournal.ARequestIsAtWorkUntilItHasEndedOrTheLastReferenceToItHasGone",)),
    Defence("What waits is not begun while the helper ends.",
            "    dropped.swap(waiting_);\n",
            "",
            ("LongWork.OnceStoppedBeginsNothingMoreAndLetsGoOfWhatWaited",)),
    Defence("A grant is good for 45 seconds.",
            "return !isNew && now - known->second > rightLifetime;",
            "return !isNew && now - known->second > forgottenAfter;",
            ("GrantAges.AGrantIsGoodForFortyFiveSecondsFromItsFirstSight",
             "GrantAges.UsingAGrantDoesNotProlongIt",
             *privileged("Rights.test_every_right_expires_after_45_seconds"))),
    Defence("A grant does not become young with a new helper.",
            "if (isNew || !isStored_)\n        isStored_ = store();\n",
            "",
            ("GrantAgesInAFile.OutlastTheProcess",
             *privileged("Rights.test_a_helper_that_starts_anew_knows_how_old_the_grants_are"))),
    Defence("Only polkit's yes is a yes.",
            "return {isYes ? RightState::expired : RightState::notHeld, std::move(answer)};",
            "return {isYes ? RightState::expired : RightState::held, std::move(answer)};",
            privileged("Attackers.test_a_client_that_asked_for_no_right_reaches_no_handler")),
    Defence("Who cannot be asked has not said yes.",
            "return {RightState::unknown, std::move(answer)};",
            "return {RightState::held, std::move(answer)};",
            privileged("Rights.test_polkit_killed_before_the_helper_asks_it_ends_the_request")),
    Defence("A yes together with a question to the user is no yes.",
            "if (isAuthorized != 0 && isChallenge != 0)\n        return -EBADMSG;  // The answer says yes and no at once.\n",
            "",
            ("policy Answers.test_nothing_else_grants",)),
    Defence("Polkit's answer is not waited for without end.",
            "constexpr std::chrono::seconds answerTime{60};",
            "constexpr std::chrono::seconds answerTime{6000000};",
            ("policy Answers.test_an_answer_that_never_comes_is_waited_for_a_minute_and_grants_nothing",)),
    Defence("A password serves only a right for which one would do.",
            "(answer.verdict == PolicyVerdict::challenge && answer.wouldBeKept)",
            "(answer.verdict == PolicyVerdict::challenge || answer.verdict == PolicyVerdict::no)",
            privileged("Rights.test_a_password_serves_no_right_that_a_rule_denies",
                       "Rights.test_a_password_serves_no_right_that_wants_one_each_time")),
    Defence("Only a password serves other rights, not a rule.",
            "&& !implied.grant.id.empty() &&",
            "&&",
            privileged("Rights.test_what_a_rule_lets_everybody_do_serves_no_other_right",
                       "Rights.test_the_action_that_the_rights_imply_grants_nothing_by_itself")),
    Defence("An expired grant serves no other right.",
            " &&\n            !ages.isExpired(implied.grant))",
            ")",
            privileged("Rights.test_every_right_expires_after_45_seconds")),
    Defence("A reference gives up only what was obtained under it.",
            "const bool isTaken = owned.second.lock() == reference;",
            "const bool isTaken = static_cast<bool>(reference);",
            ("session References.test_a_reference_gives_up_what_was_obtained_under_it_only",)),
    Defence("In the background nothing is taken of what is typed for another program.",
            "return at->group == at->foreground;",
            "return true;",
            ("session TerminalOfAnotherSession.test_in_the_background_nothing_is_taken_from_the_shell_in_the_foreground",)),
    Defence("The questions need no descriptor any more once the helper has clients.",
            "    connectToPolicy();\n",
            "",
            privileged("Helper.test_a_question_is_asked_however_short_descriptors_are_and_the_bus_may_have_gone"
                       "_and_come_back")),
    Defence("The helper cannot get capabilities back.",
            "prctl(PR_CAPBSET_DROP, capability) != 0 && errno != EPERM",
            "prctl(PR_CAPBSET_READ, capability) < 0",
            privileged("Helper.test_it_keeps_only_the_capabilities_that_it_needs")),
    Defence("The helper keeps only the capabilities that it needs.",
            "if (const int code = keepNeededCapabilities()) {",
            "if (const int code = 0) {",
            privileged("Helper.test_it_keeps_only_the_capabilities_that_it_needs")),
    Defence("A process that has the number of the one that connected does not speak for it.",
            "return process_ && isAlive(process_) ? startTime_ : 0;",
            "return isAlive(process_) || process_ ? startTime_ : 0;",
            ("LinuxStreamSocket.APeerThatHasEndedHasNoStartTime",
             "LinuxStreamSocketOfAnOlderKernel.APeerThatHasEndedHasNoStartTime",
             *privileged("Attackers.test_a_process_that_has_the_number_of_the_one_that_connected"
                         "_does_not_speak_for_it"))),
    Defence("Where the kernel tells the number alone, who has become another user is not the one that connected.",
            "if (status_ && userByStatus(status_) != peer.userIdentifier)",
            "if (status_ && userByStatus(status_) < 0 && peer.userIdentifier < 0)",
            ("LinuxStreamSocketOfAnOlderKernel.APeerThatHasBecomeAnotherUserHasNoStartTime",)),
    Defence("A look at the client's process needs no descriptor.",
            "return process_ && isAlive(process_) ? startTime_ : 0;",
            "return process_ && isAlive(process_) ? startTimeOfProcess(peer.processIdentifier) : 0;",
            ("LinuxStreamSocket.APeerIsKnownAlthoughNoDescriptorIsLeft",
             "LinuxStreamSocketOfAnOlderKernel.APeerIsKnownAlthoughNoDescriptorIsLeft",
             *privileged("Helper.test_a_question_is_asked_however_short_descriptors_are_and_the_bus_may_have_gone"
                         "_and_come_back"))),
    Defence("A user whom numbers are lent answers for the processes that have them.",
            "SubordinateUsers::ofTheSystem().accountableFor(who->userIdentifier)",
            "who->userIdentifier",
            ("LinuxStreamSocket.WhoeverIsLentANumberAnswersForTheProcessThatHasIt",)),
    Defence("Lent numbers are no users of their own to a listener.",
            "const auto user = socket->accountableUser();",
            "const auto peer = socket->peer();\n"
            "        const auto user = peer ? peer->userIdentifier : -1;",
            ("NSXPCListener.TheConnectionsOfUsersWhomAnotherAnswersForCountAsThatOnes",)),
    Defence("Lent numbers have no lines of their own in the log.",
            "refusalsOf(client.accountable.value_or(client.user));",
            "refusalsOf(client.user);",
            ("RequestJournal.RefusalsOfUsersWhomAnotherAnswersForTakeThatOnesLines",)),

    # Work that its client does not want any more, or that a file system does not answer.
    Defence("A request that a file system does not answer is answered once its client says no or has gone.",
            "            instead.swap(instead_);\n",
            "",
            ("AskedWorkTest.AClientsNoFreesItsRequestsOnAMountThatDoesNotAnswer",
             "AskedWorkTest.AClientThatHasGoneFreesItsRequestAndItsWritesOrder")),
    Defence("What the kernel holds of such requests takes places of their user.",
            "    return WorkLeft::shared().isFull(user);\n",
            "    return user == UINT32_MAX;\n",
            ("AskedWorkTest.AClientsNoFreesItsRequestsOnAMountThatDoesNotAnswer",)),
    Defence("A long reduction of a list ends at its client's no.",
            "setAclEntriesOfUrl(entries, url, rule, goesOn));",
            "setAclEntriesOfUrl(entries, url, rule, [&] { return goesOn() || true; }));",
            ("LongReduction.EndsAtItsClientsNo", "LongReduction.EndsWhenItsClientHasGone")),
    Defence("A long rename ends at its client's no.",
            "    bool goesOn() const { return !goesOn_ || goesOn_(); }\n",
            "    bool goesOn() const { return true; }\n",
            ("RenameRequests.AfterANoWhatIsLeftKeepsItsName",)),

    # After an upgrade.
    Defence("The old helper leaves after an upgrade, whoever is connected.",
            "status.st_nlink == 0;",
            "status.st_nlink > 1000;",
            privileged("Helper.test_after_an_upgrade_it_leaves_whoever_stays_connected")),

    # The installer.
    Defence("What others than root can change is not installed.",
            "|.....[^w]..[^w].) root '",
            "|..........) '",
            installer("test_what_others_than_root_can_change_is_refused",
                      "test_a_link_on_the_way_counts_with_all_that_it_leads_through")),
    Defence("Nor is a helper with a library that others can change.",
            "    check_libraries\n",
            "",
            installer("test_the_helpers_libraries_are_roots_too")),
    Defence("A mask is the administrator's word.",
            "    each check_mask\n",
            "",
            installer("test_a_masked_unit_stays_masked_and_is_named")),
    Defence("An edited file is the administrator's word.",
            'if ! cmp -s "$1" "$to" && is_roots "$to" && ! cmp -s',
            "if false && cmp -s",
            installer("test_a_file_that_was_changed_by_hand_stays_and_is_named")),
    Defence("A file that others can change is nobody's word.",
            '"$to" || ! is_as_it_was_left "$to"; then',
            '"$to"; then',
            installer("test_wrong_owners_and_modes_are_mended")),
    Defence("Whatever only root can change is the administrator's word, in whichever mode.",
            "in '0 '?????-??-?) ;;",
            "in '0 -rw-r--r--') ;;",
            installer("test_a_file_that_was_changed_by_hand_stays_and_is_named")),
    Defence("The right to install does not take away.",
            '[ -z "${PKEXEC_UID-}" ] ||',
            "true ||",
            installer("test_the_right_to_install_takes_nothing_away")),
    Defence("A socket is no listener.",
            "== 0 || errno == EAGAIN;",
            "<= 0;",
            ("installation Installation.test_a_socket_behind_which_nobody_listens_is_installed_again",)),

    # The client's side.
    Defence("A privileged socket is root's.",
            "|| status.st_uid != 0))",
            "))",
            ("WellKnownSocketTest.ASquattersSocketIsNotEvenConnectedTo",
             *privileged("Attackers.test_a_socket_that_is_not_roots_is_not_spoken_to"))),
    Defence("The process behind a privileged socket is root's.",
            "if (!peer || peer->userIdentifier != 0)",
            "if (!peer || peer->userIdentifier < 0)",
            ("WellKnownSocketTest.ASquatterBehindRootsSocketIsToldNothing",)),
    Defence("The privileged place does not depend on the environment.",
            "privileged ? nullptr : secure_getenv(runtimeVariable)",
            "privileged && false ? nullptr : secure_getenv(runtimeVariable)",
            ("WellKnownSocketTest.ThePrivilegedPlaceDoesNotDependOnTheEnvironment",)),

    # Streams.
    Defence("A slow sender has the time of one frame.",
            "else if (!deadline_) {\n        deadline_ = std::chrono::steady_clock::now() + limits_.frameTime;",
            "else if (!deadline_) {\n        deadline_.reset();",
            ("FrameReader.GivesUpOnASenderThatTricklesAlthoughThereIsAlwaysAByte",
             "HostilePeer.ASlowSenderIsCutOffAtTheTimeOfAWholeFrame")),
    Defence("A sender that always has one byte more is cut off too.",
            "|| (deadline && std::chrono::steady_clock::now() >= *deadline))",
            ")",
            ("FrameReader.GivesUpOnASenderThatTricklesAlthoughThereIsAlwaysAByte",)),
    Defence("A sender that stops within a frame is not waited for.",
            "socket_.receive(parser_.room(), deadline);",
            "socket_.receive(parser_.room(), {});",
            ("FrameReader.GivesUpOnAFrameThatTakesTooLong",)),
    Defence("A client that never reads is cut off after the time of one frame.",
            "look_.emplace(*deadline_, [weak = weak_from_this()] {",
            "look_.emplace(*deadline_ + std::chrono::hours(1), [weak = weak_from_this()] {",
            ("Outbox.CutsAReaderOffThatNeverReads",
             "HostilePeer.AClientThatNeverReadsIsCutOff")),
    Defence("A client that reads a little at a time is cut off too.",
            "        if (*sent == 0) {\n            if (!deadline_)\n",
            "        if (*sent == 0) {\n",
            ("Outbox.CutsAReaderOffThatTricklesAlthoughItAlwaysGetsOn",)),
    Defence("No thread waits for a client that takes no replies.",
            "    runWhenWritable(socket_.get(), onceReady(std::move(sending)));\n",
            "    StreamSocket::whenWritable([self = shared_from_this(), sending = std::move(sending)] {\n"
            "        pollfd room{self->socket_.get(), POLLOUT, 0};\n"
            "        ::poll(&room, 1, 1000);\n"
            "        sending();\n"
            "    });\n",
            ("ServedStream.ClientsThatTakeNoRepliesCostNoThread",)),
    Defence("No thread waits for a client that says nothing.",
            "    runWhenReadable(socket_.get(), onceReady(std::move(reading)));\n",
            "    StreamSocket::whenReadable([self = shared_from_this(), reading = std::move(reading)] {\n"
            "        pollfd more{self->socket_.get(), POLLIN, 0};\n"
            "        ::poll(&more, 1, -1);\n"
            "        reading();\n"
            "    });\n",
            ("ServedStream.ClientsThatSayNothingCostNoThread",)),
    Defence("No thread waits for the rest of a frame.",
            "const auto count = receiveSoon(*socket_, parser_.room());",
            "const auto count = deadline ? socket_->receive(parser_.room(), deadline)\n"
            "                                : receiveSoon(*socket_, parser_.room());",
            ("ServedStream.HalfAFrameCostsNoThread",)),
    Defence("Clients that leave while their user's places are taken cost one thread together.",
            "account_->ends->add(shared_from_this());",
            "runLasting(shared_from_this());",
            ("ServedStream.ClientsThatLeaveWhileTheirUsersPlacesAreTakenCostOneThreadTogether",)),
    Defence("Clients that have left, and are not cleared up, take no places of other users.",
            " || heldByUser >= 2 * limits_.ofOneUser)",
            ")",
            ("NSXPCListener.ClientsThatComeAndLeaveFasterThanTheyAreClearedUpLockNobodyElseOut",)),
    Defence("Nothing of a client that has left stays until its time limit would be over.",
            "    clock().drop(time_, number_);\n",
            "",
            ("LeavingClients.NothingOfThemStaysUntilTheTimeOfTheirFramesIsOver",
             "LeavingClients.NothingOfWhatTheyAreOwedStaysUntilItsTimeIsOver",
             "Clock.ATaskThatIsDroppedDoesNotRun")),
    Defence("Of a large request nothing is held before it is admitted.",
            "? gate_->admits(header.id, text(payload.first(header.selectorLength)))",
            "? true",
            ("FrameParser.HoldsNothingOfALargeRequestThatIsNotAdmitted",)),
    Defence("Of a large reply nothing is held that nobody waits for.",
            ": gate_->expects(header.id));",
            ": true);",
            ("FrameParser.HoldsNothingOfALargeReplyThatNobodyWaitsFor",
             "NSXPCListener.RepliesThatNobodyWaitsForTakeNothingFromOthers")),
    Defence("What hangs holds up none of the requests behind it.",
            "    since_.reset();\n    ++turn_;\n    goOn();",
            "    since_.reset();",
            ("ServedStream.ARequestThatHangsHoldsUpNoneOfThoseBehindIt",)),
    Defence("What hangs costs its own user's places.",
            "if (account_->places.take(1)) {\n        serve();",
            "if (true) {\n        serve();",
            ("ServedStream.WhatHangsCostsThePlacesOfItsOwnUserOnly",)),
    Defence("Only so many bytes wait for a client that does not read.",
            "if (bytes_ + size > limits_.bytes)",
            "if (size > limits_.bytes)",
            ("Outbox.HoldsNoMoreBytesThanItsLimit",)),
    Defence("Descriptors that a peer sends are never taken.",
            "const auto count = recvmsg(socket_.get(), &message, flags);",
            "alignas(cmsghdr) std::array<char, CMSG_SPACE(253 * sizeof(int))> control{};\n"
            "        message.msg_control = control.data();\n"
            "        message.msg_controllen = control.size();\n"
            "        const auto count = recvmsg(socket_.get(), &message, flags);",
            ("HostilePeer.NoneOfAFloodOfDescriptorsIsOpenedHere",)),
    Defence("Who sends descriptors is cut off.",
            "return count > 0 && (message.msg_flags & MSG_CTRUNC) != 0 ? 0 : count;",
            "return count;",
            ("HostilePeer.AFloodOfDescriptorsEndsTheConnectionBeforeItsRequestIsLookedAt",)),
    Defence("A frame's length has a limit.",
            "header.payloadLength > limits::frameSize || ",
            "",
            ("FrameReader.RefusesALengthOverTheLimitBeforeItsPayloadCame",)),
    Defence("A message of many frames has a limit.",
            "header.payloadLength > limits_.messageSize - filled_",
            "header.payloadLength > 2 * limits_.messageSize - filled_",
            ("FrameReader.RefusesAMessageOverTheLimitHoweverManyFramesItHas",)),
    Defence("A user has only so many connections.",
            "ofUser >= limits_.ofOneUser;",
            "ofUser >= limits_.all;",
            ("NSXPCListener.TurnsAUserAwayWhoHasTooManyConnectionsAndServesTheOthers",)),
    Defence("A listener has only so many connections.",
            "all + kept < limits_.all)",
            "kept < limits_.all)",
            ("NSXPCListener.TurnsEveryoneAwayWhenItHasTooManyConnections",)),
    Defence("The last places are for users who have hardly any.",
            "ofUser < limits_.hardlyAny ? 0 : limits_.kept;",
            "std::size_t(0);",
            ("NSXPCListener.ItsLastPlacesAreForUsersWhoHaveHardlyAny",)),
    Defence("Idle clients cannot lock others out.",
            "    return idle != nullptr;\n",
            "    return false;\n",
            ("NSXPCListener.AnIdleClientMakesRoomForAnother",)),
    Defence("A client that takes no replies is not read any further.",
            "if (!message && outbox_->waitsForPeer([this] {",
            "if (!message && parser_.isBroken() && outbox_->waitsForPeer([this] {",
            ("ServedStream.AClientThatTakesNoRepliesIsNotReadAnyFurther",)),
    Defence("What is decoded counts against its user.",
            "return std::make_shared<Port>(outbox, id, memory);",
            "return std::make_shared<Port>(outbox, id, nullptr);",
            ("ServedStream.WhatIsDecodedCountsAgainstItsUserUntilItIsAnswered",)),
    Defence("What waits to be sent counts against its user.",
            "if (body.size() > smallBody && limits_.shared) {",
            "if (body.size() > limits::messageSize && limits_.shared) {",
            ("Outbox.WhatWaitsCountsAgainstTheSharedBudgetUntilItIsSent",)),
    Defence("What the requests of all users take is bounded too.",
            ".memoryOfAll = memory_,",
            "",
            ("NSXPCListener.RefusesLargeRequestsOfSeveralUsersThatAreTooManyAtOnce",)),
    Defence("The threads of all users' requests are bounded too.",
            ".placesOfAll = places_}",
            "}",
            ("NSXPCListener.RequestsWaitWhileThoseOfAllUsersHaveTheThreadsThatThereAreForThem",)),
    Defence("The unit allows the helper well more than its clients can make it take.",
            "TasksMax=2048",
            "TasksMax=1024",
            ("HelperUnit.AllowsWellMoreThanTheHelperAllowsItsClients",)),
    Defence("A reply that is too large does not end its connection.",
            "} else if (kind == FrameKind::reply &&",
            "} else if (kind == FrameKind::refusal &&",
            ("Outbox.AReplyOverTheLimitEndsItsOwnRequestOnly",)),
    Defence("Only so many requests are in flight.",
            "flows ? limits::requestsInFlight : limits::requestsDeferred",
            "flows ? 2 * limits::requestsInFlight : limits::requestsDeferred",
            ("NSXPCConnection.RequestsBeyondTheLimitOfThoseInFlightAreRefused",)),
    Defence("Only so many requests wait for their connection.",
            "flows ? limits::requestsInFlight : limits::requestsDeferred",
            "flows ? limits::requestsInFlight : 2 * limits::requestsDeferred",
            ("NSXPCConnection.RequestsBeyondTheLimitOfThoseThatWaitAreRefused",)),

    # Archives.
    Defence("Only the classes of its position are decoded.",
            "if (!c)\n            refuse(asciiText(*name), key);",
            "if (!c)\n            return *classes.front();",
            ("NSKeyedUnarchiver.AClassOutsideTheSetIsRefusedBeforeAnythingIsMade",
             "NSKeyedUnarchiver.AnUnknownClassIsRefused")),
    Defence("A message's values are of the classes that are declared for their positions.",
            "if (!classesAllow(allowed, c))\n        throw",
            "if (!classesAllow(allowed, c) && key.empty())\n        throw",
            ("NSXPCConnection.AnUndeclaredClassInARequestIsRefusedBeforeTheObjectIsTouched",
             "NSXPCConnection.AnUndeclaredClassInAReplyIsRefusedWithTheKey")),
    Defence("A class that was decoded before is checked at each position.",
            "if (!contains(classes, *known))\n"
            "                refuse(known->name, key);\n",
            "",
            ("NSKeyedUnarchiver.AClassThatWasAllowedElsewhereIsRefused",)),
    Defence("Objects are nested only so deeply.",
            "if (budget.depth == 0)",
            "if (budget.depth == 1U << 31)",
            ("NSKeyedUnarchiver.SixtyFourObjectsDeepAreReadAndOneMoreIsRefused",
             "NSKeyedUnarchiver.TheDepthSpansNestedArchives")),
    Defence("An archive unfolds only into so many bytes.",
            "budget.bytes = std::min(most.bytes, std::uint64_t{size} * most.depth + 4096);",
            "budget.bytes = std::uint64_t{1} << 60;",
            ("NSKeyedUnarchiver.ATextThatIsReadVeryOftenSpendsTheBudgetOfBytes",)),
    Defence("An archive unfolds only into so many objects.",
            "budget.objects = std::min(most.objects, std::uint64_t{size} * 2 + 1024);",
            "budget.objects = std::uint64_t{1} << 60;",
            ("NSKeyedUnarchiver.AnObjectThatIsNamedVeryOftenSpendsTheBudgetOfObjects",)),
    Defence("Nested archives share one budget.",
            "        : ArchiveObjects(data, outer, front) {",
            "        : ArchiveObjects(data, (void(outer), void(front), NSDecodingBudget())) {",
            ("NSKeyedUnarchiver.TheDepthSpansNestedArchives",)),
    Defence("No object has two classes.",
            "if (classes > 1)",
            "if (false)",
            ("FuzzCorpus.BothReadersMakeTheSameOfEveryArchive",)),
    Defence("Keys are known by their numbers only where they are the same texts.",
            "if (!list.hasText(dictionary, i, shape.keys[i]))",
            "if (!list.hasText(dictionary, i, shape.keys[i]) && false)",
            ("NestedArchives.WithTheSameNumbersAndOtherKeysAreToldApart",)),
    Defence("A front is known by all of its bytes.",
            "startsWith(begin_, table, front_->bytes(refSize_)) &&",
            "front_->bytes(refSize_).size() < table &&",
            ("ArchiveFronts.WithAChangedKeyAreOtherKeys", "ArchiveFronts.WithAChangedClassAreRefused")),
    Defence("What has one owner stands in one place of an archive.",
            "        if (!state.rebuilt.standsOnce(uid))\n            fail(",
            "        if (!state.rebuilt.standsOnce(uid) && false)\n            fail(",
            ("MVAclEntryCoding.AGroupOfManyBoxesInManyPlacesIsRefused",
             "MVAclEntryCoding.ABoxInManyNodesIsRefused",
             "MVAclEntryCoding.WhatStandsInTwoEntriesOfOneArrayIsRefused")),
    Defence("A plain object of a large array is made once however often it stands there.",
            "!state_.rebuilt.isNew(uids_[k]))",
            "uids_[k] == 0)",
            ("LargeArray.APlainObjectThatStandsThereTwiceIsTheSameObject",)),
    Defence("A plain object of a large array is of the class that is known.",
            "list.reference(references, 2 * pairs - 1) != classReference ||",
            "classReference == 0 ||",
            ("LargeArray.APlainObjectThatIsNotLikeTheOthersIsReadOrRefusedAsAnyObjectIs",)),
    Defence("A plain object of a large array is made of values of its kinds.",
            "if ((*p & 0xFE) != 0x08)",
            "if (*p == 0xFF)",
            ("LargeArray.APlainObjectThatIsNotLikeTheOthersIsReadOrRefusedAsAnyObjectIs",)),
    Defence("A nested archive stands in one place.",
            "if (!state_->rebuilt.standsOnce(state_->uid(element, key)))",
            "if (false)",
            ("NSKeyedUnarchiver.ANestedArchiveThatStandsTwiceIsRefused",)),
    Defence("The objects that are made count against the budget of bytes.",
            'state_->spendBytes(size, within ? within->key : "root");',
            "(void)within;",
            ("MVAclEntryCoding.NodesAndBoxesCountAgainstTheBudget",)),
    Defence("A name is not kept because a peer has sent it.",
            "if (std::max({key.size(), table.size(), result.size()}) <= longestRemembered) {",
            "if (std::max({key.size(), table.size(), result.size()}) != 0) {",
            ("KDLocalizedStringTest.NoLongNameIsRememberedAndNoLongText",)),
    Defence("A phrase says in English what stands beside it.",
            "if (readAs(Reading::Language::english, code) != english)",
            "if (!readAs(Reading::Language::english, code))",
            ("PhraseTest.ACodeThatSaysSomethingElseInEnglishCountsForNothing",)),
    Defence("A phrase from elsewhere does not unfold without end.",
            "if (text.size() > room_)",
            "if (false)",
            ("PhraseTest.ACodeThatUnfoldsIntoTooMuchCountsForNothing",)),
    Defence("A phrase from elsewhere is not read to any depth.",
            "if (rest_.empty() || depth > maxDepth)",
            "if (rest_.empty())",
            ("PhraseTest.ACodeIsNotReadToAnyDepth",)),
    Defence("A name with a NUL is not cut.",
            "if (key.empty() || hasNul(key) || hasNul(table))",
            "if (key.empty())",
            ("KDLocalizedStringTest.ANameWithANulIsKeptWhole",)),
    Defence("What a worker may use at the end of the process is not destroyed: the access to files.",
            "static auto& part = *new SystemPart<FileAccess>(systemFileAccess);",
            "static SystemPart<FileAccess> part(systemFileAccess);",
            ("EndOfTheProcess.TheAccessToFilesIsThereUntilIt",)),
    Defence("What a worker may use at the end of the process is not destroyed: the main loop.",
            "{\n    static auto& part = *new SystemPart<MainLoop>(systemMainLoop);",
            "{\n    static SystemPart<MainLoop> part(systemMainLoop);",
            ("EndOfTheProcess.TheMainLoopIsThereUntilIt",)),
    Defence("What a worker may use at the end of the process is not destroyed: the authorization services.",
            "static auto& part = *new SystemPart<AuthorizationServices>(systemAuthorizationServices);",
            "static SystemPart<AuthorizationServices> part(systemAuthorizationServices);",
            ("EndOfTheProcess.TheAuthorizationServicesAreThereUntilIt",)),
    Defence("A request that lacks its list does not ask to remove it.",
            "        if (coder.isNil(key))\n            throw",
            "        if (coder.isNil(key) && false)\n            throw",
            ("NSXPCCoding.ARequestWithoutItsArrayIsNotOneWithAnEmptyArray",)),

    # Requests end once, in order.
    Defence("A stream that is made for a connection invalidated meanwhile is ended.",
            "connected = reading && !invalidated_;",
            "connected = static_cast<bool>(reading);",
            ("NSXPCConnection.InvalidatedWhileAnotherThreadConnectsItEndsItsRequestsAndItsStream",)),
    Defence("Later requests wait behind those that are being sent.",
            "state_ = State::catchingUp;\n        } else",
            "state_ = State::streaming;\n        } else",
            ("NSXPCConnection.ARequestDoesNotPassThoseOfItsThreadThatWaitWhileAnotherThreadConnects",)),
    Defence("Letting go of a connection runs no handler.",
            "core_->letGo();",
            "core_->invalidate();",
            ("NSXPCConnection.LettingGoOfItEndsItsStreamAndRunsNoHandler",)),
    Defence("What is refused while the system is short of memory leaves the connection valid.",
            "if (!invalidated_ && !stream && !isShortage(reason)) {",
            "if (!invalidated_ && !stream) {",
            ("NSXPCConnectionWithoutMemory.EachRequestEndsOnceAndTheNextOneWorks",)),
    Defence("A job that no thread can be had for is dropped where no other's end would start it.",
            "            dropped.splice(dropped.end(), waiting_, job);\n",
            "            break;\n",
            ("LongWorkWithoutMemory.WhatCannotRunIsDroppedAndHoldsUpNobody",)),
    Defence("A write that the runner drops makes way for those behind it.",
            "        } catch (const std::exception&) {\n            // Its request ends with it.\n",
            "        } catch (const std::exception&) {\n            return;\n",
            ("WriteOrderWithoutMemory.WhatCannotBeginIsDroppedAndHoldsUpNobody",)),
    Defence("What a failed allocation has left halfway is not used for the next archive.",
            "state_->finished && state_->objects.size()",
            "state_->objects.size()",
            ("NSKeyedArchiverWithoutMemory.LeavesNothingBehindThatTheNextOneMeets",)),
    Defence("A client that there is no memory for costs the listener nothing.",
            "        } catch (const std::exception&) {\n            socket->shutdown();",
            "        } catch (const std::system_error&) {\n            socket->shutdown();",
            ("NSXPCListenerWithoutMemory.AClientIsAnsweredOrItsStreamEndsAndTheNextIsAnswered",)),
    Defence("A private service leaves when its host's stream has ended.",
            "core->onEnd = [clients = clients_, number] { clients->remove(number); };",
            "",
            ("ServiceProcess.LeavesWithItsHostThatSaysNothing",)),
    Defence("Tasks that nothing waits for any more are run.",
            "            if (count < 0) {\n                giveUp();\n                return;\n            }\n",
            "            if (count < 0)\n                continue;\n",
            ("ReadinessWorkers.WhereNothingCanBeWaitedForATaskRunsAlone",)),
    Defence("The privileged connection looks for its socket where only root may put it.",
            "NSXPCConnection::initWithMachServiceName(MVPrivilegedHelperName, NSXPCConnectionPrivileged)",
            "NSXPCConnection::initWithMachServiceName(MVPrivilegedHelperName, 0)",
            ("MVConnectorWithServices.ThePrivilegedConnectionLooksForItsSocketWhereOnlyRootMayPutIt",)),
)


class Misfit(Exception):
    """A row that does not fit the source or the tests."""


def run(*command):
    result = subprocess.run(command, cwd=COPY, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if result.returncode != 0:
        raise Misfit(f"{' '.join(command)}\n{result.stdout}")
    return result.stdout


def copy_sources():
    """What has not changed keeps its time, and with it what was built."""
    tracked = subprocess.run(["git", "ls-files", "-z"], cwd=SOURCE, check=True, text=True,
                             stdout=subprocess.PIPE).stdout.split("\0")[:-1]
    for name in tracked:
        source, copy = os.path.join(SOURCE, name), os.path.join(COPY, name)
        if not os.path.isfile(source) or (os.path.isfile(copy) and filecmp.cmp(source, copy, shallow=False)):
            continue
        os.makedirs(os.path.dirname(copy), exist_ok=True)
        shutil.copy(source, copy)
        os.utime(copy)


def build(tests):
    suites = {re.split("[ .]", test)[0] for test in tests}
    run("cmake", "--build", "--preset", "dev", "--target", *sorted({p for s in suites for p in PROGRAMS[s]}))


class Tests:
    """The tests that ctest knows, run by their commands: `privileged` can then run one of its methods."""

    def __init__(self):
        listed = json.loads(run("ctest", "--test-dir", BUILD, "--show-only=json-v1"))
        self.known = {test["name"]: test for test in listed["tests"]}

    def fails(self, name):
        """None if it succeeds, else what it says."""
        test, _, method = name.partition(" ")
        if "command" not in self.known.get(test, {}):
            raise Misfit(f"there is no test {test}")
        properties = {p["name"]: p["value"] for p in self.known[test]["properties"]}
        environment = dict(entry.split("=", 1) for entry in properties.get("ENVIRONMENT", ()))
        with subprocess.Popen([*self.known[test]["command"], *method.split()], text=True,
                              env={**os.environ, **environment}, cwd=properties["WORKING_DIRECTORY"],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, start_new_session=True) as process:
            try:
                output = process.communicate(timeout=TIME_LIMIT)[0]
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                raise Misfit(f"{name} hangs") from None
        if process.returncode == 0:
            if not re.search(r"^\[  PASSED  \] 1 test|^Ran 1 test", output, re.MULTILINE):
                raise Misfit(f"{name} is not one test:\n{output}")
            return None
        # Killed by a signal it has failed too: some tests are there to see that the program goes on.
        if process.returncode > 0 and not re.search(r": Failure$|^FAILED \(failures=", output, re.MULTILINE):
            raise Misfit(f"{name} ends without a failed expectation:\n{output}")
        return output


@functools.cache
def sources(folder):
    """The tracked files that a defence may stand in, by path."""
    paths = subprocess.run(["git", "-C", SOURCE, "ls-files", "--", *ROOMS], capture_output=True, text=True,
                           check=True).stdout.splitlines()
    texts = {}
    for path in paths:
        with open(os.path.join(folder, path), encoding="utf-8") as f:
            texts[path] = f.read()
    return texts


def place_of(defence, folder):
    """The path of the file that has the row's text, and all that it has."""
    places = [(path, source) for path, source in sources(folder).items() if defence.text in source]
    if len(places) != 1 or places[0][1].count(defence.text) != 1:
        raise Misfit(f"{', '.join(path for path, _ in places) or 'no file'} has, not once:\n{defence.text}\n"
                     "Keep the row up with the source.")
    return places[0]


def all_fit():
    status = 0
    for defence in DEFENCES:
        try:
            place_of(defence, SOURCE)
        except Misfit as misfit:
            print(f"{defence.title} {misfit}")
            status = 1
    return status


def unnoticed(defence):
    """The tests that succeed without the defence."""
    file, source = place_of(defence, COPY)
    path = os.path.join(COPY, file)
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(source.replace(defence.text, defence.without))
        build(defence.tests)
        tests = Tests()
        return [test for test in defence.tests if not tests.fails(test)]
    finally:
        with open(path, "w", encoding="utf-8") as f:
            f.write(source)


def main(words):
    if words == ["--fit"]:
        return all_fit()
    chosen = [d for d in DEFENCES if not words or any(word in d.title for word in words)]
    names = sorted({test for defence in chosen for test in defence.tests})
    if not names:
        sys.exit("no defence has such a title")
    copy_sources()
    run("cmake", "--preset", "dev")
    build(names)
    tests = Tests()
    broken = [name for name in names if tests.fails(name)]
    if broken:
        sys.exit("These tests fail although nothing was taken away: " + ", ".join(broken))
    missed = 0
    for defence in chosen:
        begin = time.monotonic()
        try:
            left = unnoticed(defence)
            result = f"NOT NOTICED by {', '.join(left)}" if left else "noticed"
        except Misfit as misfit:
            left = result = f"NOT SHOWN: {misfit}"
        missed += bool(left)
        print(f"{time.monotonic() - begin:5.0f} s  {defence.title} {result}", flush=True)
    print(f"Without {len(chosen) - missed} of {len(chosen)} defences tests fail.")
    return 1 if missed else 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except Misfit as misfit:
        sys.exit(str(misfit))
