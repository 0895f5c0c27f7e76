#!/usr/bin/env bash
# What its makefiles turn paths into Windows' own with. Here they stay what they are.
printf '%s\n' "${!#}"
