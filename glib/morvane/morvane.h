/* SPDX-License-Identifier: MIT */
#pragma once

#include <morvane/morvane-acl-entry.h>
#include <morvane/morvane-acl.h>
#include <morvane/morvane-base.h>
#include <morvane/morvane-file-client.h>
#include <morvane/morvane-identity.h>
#include <morvane/morvane-permission.h>
#include <morvane/morvane-progress.h>
#include <morvane/morvane-sizes.h>
