// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVServiceNames.h>

#include <tuple>

#include "ServiceTestSupport.h"

namespace morvane {
namespace {

const std::string prefix = MVApplicationIdentifierPrefix;

struct Row {
    const char* suffix;
    const char* prompt;
};
constexpr Row rows[] = {
    {".GetFileAcl", "Morvane wants to retrieve file Access Control List."},
    {".GetFileAccess", "Morvane wants to retrieve effective permissions."},
    {".SetFileAcl", "Morvane wants to save file Access Control List."},
    {".PropagateFileAcl",
     "Morvane wants to propagate file Access Control List, POSIX permissions, owner and group."},
    {".RenameFiles", "Morvane wants to rename files."},
    {".GetFileSize", "Morvane wants to calculate file sizes."},
};

class MVAuthorizationTest : public AuthorizationTest {};

TEST_F(MVAuthorizationTest, CreationAsksForAReferenceAndThenForEachRightInOrder) {
    for (const auto& row : rows)
        services->getStatus[prefix + row.suffix] = 0;
    ASSERT_TRUE(MVAuthorization::sharedAuthorization());
    std::vector<std::string> expected{"AuthorizationCreate"};
    for (const auto& row : rows)
        expected.push_back("AuthorizationRightGet " + prefix + row.suffix);
    EXPECT_EQ(services->calls, expected);
    EXPECT_EQ(services->createFlags, std::vector<std::uint32_t>{0});
}

TEST_F(MVAuthorizationTest, DefinesEachMissingRightWithItsPromptAndTheOneRule) {
    ASSERT_TRUE(MVAuthorization::sharedAuthorization());
    ASSERT_EQ(services->sets.size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(services->sets[i].reference, services->reference);
        EXPECT_EQ(services->sets[i].name, prefix + rows[i].suffix);
        EXPECT_EQ(services->sets[i].descriptionKey, rows[i].prompt);
        EXPECT_EQ(services->sets[i].rule, (AuthorizationRule{"user", "admin", 45, false, true}));
    }
}

TEST_F(MVAuthorizationTest, DefinesARightBeforeItAsksForTheNextOne) {
    services->getStatus[prefix + ".GetFileAccess"] = 0;
    ASSERT_TRUE(MVAuthorization::sharedAuthorization());
    std::vector<std::string> expected{"AuthorizationCreate"};
    for (const auto& row : rows) {
        expected.push_back("AuthorizationRightGet " + prefix + row.suffix);
        if (row.suffix != std::string(".GetFileAccess"))
            expected.push_back("AuthorizationRightSet " + prefix + row.suffix);
    }
    EXPECT_EQ(services->calls, expected);
}

TEST_F(MVAuthorizationTest, ItsReferenceIsTheSystemsUntilItsHostSetsAnother) {
    const auto authorization = MVAuthorization::sharedAuthorization();
    EXPECT_EQ(authorization->authRef(), services->reference);
    const auto other = std::make_shared<FakeAuthorizationServices::Reference>();
    authorization->setAuthRef(other);
    EXPECT_EQ(authorization->authRef(), other);
    EXPECT_TRUE(authorization->authorizeRight(MVRightGetFileAcl, nullptr));
    EXPECT_EQ(services->copies.at(0).reference, other);
    EXPECT_EQ(services->blesses.at(0).reference, other);
}

TEST_F(MVAuthorizationTest, LeavesARightThatExistsAsItIs) {
    services->getStatus[prefix + ".SetFileAcl"] = 0;
    ASSERT_TRUE(MVAuthorization::sharedAuthorization());
    EXPECT_EQ(services->sets.size(), 5u);
    for (const auto& set : services->sets)
        EXPECT_NE(set.name, prefix + ".SetFileAcl");
}

TEST_F(MVAuthorizationTest, IgnoresAnyOtherStatusOfARight) {
    services->getStatus[prefix + ".GetFileAcl"] = -1;
    ASSERT_TRUE(MVAuthorization::sharedAuthorization());
    EXPECT_EQ(services->sets.size(), 5u);
}

TEST_F(MVAuthorizationTest, TheSecondCreationIsTheSameInstanceAndAsksNothing) {
    const auto first = MVAuthorization::init();
    const auto calls = services->calls;
    EXPECT_EQ(MVAuthorization::init(), first);
    EXPECT_EQ(MVAuthorization::sharedAuthorization(), first);
    EXPECT_EQ(services->calls, calls);
}

TEST_F(MVAuthorizationTest, WithoutAReferenceThereIsNone) {
    services->createStatus = errAuthorizationInternal;
    EXPECT_FALSE(MVAuthorization::sharedAuthorization());
    EXPECT_TRUE(services->sets.empty());
    ASSERT_EQ(services->frees.size(), 1u);
    EXPECT_FALSE(services->frees[0].first);
    EXPECT_EQ(services->frees[0].second, 8u);
}

TEST_F(MVAuthorizationTest, ARightThatCannotBeDefinedStopsTheCreation) {
    services->setStatus[prefix + ".SetFileAcl"] = errAuthorizationInternal;
    EXPECT_FALSE(MVAuthorization::sharedAuthorization());
    EXPECT_EQ(services->sets.size(), 3u);
    ASSERT_EQ(services->frees.size(), 1u);
    EXPECT_EQ(services->frees[0].first, services->reference);
}

TEST_F(MVAuthorizationTest, TheSharedOneStaysNilUntilADirectCreationSucceeds) {
    services->createStatus = errAuthorizationInternal;
    EXPECT_FALSE(MVAuthorization::sharedAuthorization());
    services->createStatus = 0;
    EXPECT_FALSE(MVAuthorization::sharedAuthorization());
    const auto made = MVAuthorization::init();
    ASSERT_TRUE(made);
    EXPECT_EQ(MVAuthorization::sharedAuthorization(), made);
}

TEST_F(MVAuthorizationTest, TheFirstAuthorizationAsksForTwoRightsAndInstallsTheHelper) {
    const auto authorization = MVAuthorization::sharedAuthorization();
    NSErrorRef error = NSError::errorWithDomain("stale", 1);
    EXPECT_TRUE(authorization->authorizeRight(MVRightGetFileAcl, &error));
    EXPECT_FALSE(error);
    ASSERT_EQ(services->copies.size(), 1u);
    EXPECT_EQ(services->copies[0].flags, 19u);
    EXPECT_EQ(services->copies[0].reference, services->reference);
    EXPECT_EQ(services->copies[0].rights,
              (std::vector<AuthorizationItem>{{prefix + ".GetFileAcl"},
                                              {"com.apple.ServiceManagement.blesshelper"}}));
    ASSERT_EQ(services->blesses.size(), 1u);
    EXPECT_EQ(services->blesses[0].domain, kSMDomainSystemLaunchd);
    EXPECT_EQ(services->blesses[0].label, prefix + ".PrivilegedHelper");
    EXPECT_EQ(services->blesses[0].reference, services->reference);
}

TEST_F(MVAuthorizationTest, LaterAuthorizationsAskForOneRightAndInstallNothing) {
    const auto authorization = MVAuthorization::sharedAuthorization();
    authorization->authorizeRight(MVRightGetFileAcl, nullptr);
    EXPECT_TRUE(authorization->authorizeRight(MVRightRenameFiles, nullptr));
    ASSERT_EQ(services->copies.size(), 2u);
    EXPECT_EQ(services->copies[1].rights,
              (std::vector<AuthorizationItem>{{prefix + ".RenameFiles"}}));
    EXPECT_EQ(services->blesses.size(), 1u);
}

TEST_F(MVAuthorizationTest, ARefusedRightIsAnErrorWithTheSystemsTextAndInstallsNothing) {
    services->copyStatus = errAuthorizationCanceled;
    NSErrorRef error;
    EXPECT_FALSE(MVAuthorization::sharedAuthorization()->authorizeRight(MVRightGetFileAcl, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), NSOSStatusErrorDomain);
    EXPECT_EQ(error->code(), -60006);
    EXPECT_EQ(error->userInfo(),
              (NSErrorUserInfo{{NSLocalizedDescriptionKey,
                                std::string("Authorization rights error: text of -60006")}}));
    EXPECT_TRUE(services->blesses.empty());
}

TEST_F(MVAuthorizationTest, AFailedInstallationLeavesTheNextCallAskingForTwoRightsAgain) {
    services->blessCode = kSMErrorInternalFailure;
    const auto authorization = MVAuthorization::sharedAuthorization();
    EXPECT_FALSE(authorization->authorizeRight(MVRightGetFileAcl, nullptr));
    services->blessCode.reset();
    EXPECT_TRUE(authorization->authorizeRight(MVRightGetFileAcl, nullptr));
    ASSERT_EQ(services->copies.size(), 2u);
    EXPECT_EQ(services->copies[1].rights.size(), 2u);
}

TEST_F(MVAuthorizationTest, ALaterRefusalDoesNotForgetThatTheHelperIsInstalled) {
    const auto authorization = MVAuthorization::sharedAuthorization();
    authorization->authorizeRight(MVRightGetFileAcl, nullptr);
    services->copyStatus = errAuthorizationDenied;
    authorization->authorizeRight(MVRightGetFileAcl, nullptr);
    services->copyStatus = 0;
    authorization->authorizeRight(MVRightGetFileAcl, nullptr);
    EXPECT_EQ(services->copies.back().rights.size(), 1u);
}

class InstallErrorTest : public AuthorizationTest,
                         public testing::WithParamInterface<std::pair<std::int64_t, const char*>> {
};

TEST_P(InstallErrorTest, HasItsText) {
    const auto [code, text] = GetParam();
    services->blessCode = code;
    NSErrorRef error;
    EXPECT_FALSE(MVAuthorization::sharedAuthorization()->authorizeRight(MVRightGetFileAcl, &error));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), "CFErrorDomainLaunchd");
    EXPECT_EQ(error->code(), code);
    EXPECT_EQ(error->userInfo(),
              (NSErrorUserInfo{{NSLocalizedDescriptionKey,
                                std::string("Privileged job install error: ") + text}}));
}

INSTANTIATE_TEST_SUITE_P(
    Codes, InstallErrorTest,
    testing::Values(
        std::pair{1, ""}, std::pair{2, "An internal failure has occurred."},
        std::pair{3,
                  "The application's code signature does not meet the requirements to perform the "
                  "operation."},
        std::pair{4, "The requested authorization failed."},
        std::pair{5,
                  "The specified path does not exist or the helper tool at the specified path is "
                  "not valid."},
        std::pair{6, "The system cannot find the specified job."},
        std::pair{7,
                  "The service necessary to perform this operation is unavailable or is no longer "
                  "accepting requests."},
        std::pair{8, "The application's property list is not found."},
        std::pair{9, "The specified job is not enabled."},
        std::pair{10, "The application's property list is invalid."},
        std::pair{11, "The user denied the application's launch request."},
        std::pair{12, "The application is already registered."}, std::pair{13, ""}));

TEST(SystemAuthorizationServices, GrantsNothingWhereThePolicyServiceCannotBeReached) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/there/is/no/bus", 1);
    const auto services = systemAuthorizationServices();
    AuthorizationRef reference;
    EXPECT_EQ(services->AuthorizationCreate(kAuthorizationFlagDefaults, &reference),
              errAuthorizationSuccess);
    EXPECT_EQ(services->AuthorizationRightGet(MVRightGetFileAcl), errAuthorizationInternal);
    for (const std::uint32_t flags : {0U, 19U})
        EXPECT_EQ(services->AuthorizationCopyRights(reference, {{MVRightGetFileAcl}}, flags),
                  errAuthorizationInternal);
    EXPECT_EQ(services->SecCopyErrorMessageString(errAuthorizationInternal),
              "The system's policy service cannot be reached.");
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

}  // namespace
}  // namespace morvane
