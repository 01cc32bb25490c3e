# Short commands for everyday work. Anything longer than a line is a script in scripts/; CMake describes the build.
.DEFAULT_GOAL := help
.PHONY: help demo check sanitize coverage faults release debug docs bench fuzz packages check-packages format tidy clean

help:           ## show this list
	@sed -n 's/^\([a-z-]*\):[^#]*## /\1\t/p' Makefile | expand -t 16

demo:           ## install what is missing, build, run the policy exchange on the shipped policy
	@scripts/demo

check:          ## install what is missing, build, and run all tests
	@scripts/check

sanitize:       ## run the tests under the address, undefined-behaviour and thread sanitizers
	@scripts/check-sanitized

coverage:       ## show which lines and branches of the library the tests reach
	@scripts/coverage

faults:         ## plant faults and list those that the tests miss; takes most of an hour
	@scripts/faults

release:        ## build what is shipped into build/release
	@scripts/build release shipped
	@echo 'Built. Next: build/release/bin/first_record'

debug:          ## build for a debugger into build/debug
	@scripts/build debug

docs:           ## write the reference into build/release/docs/html
	@scripts/build release docs

bench:          ## measure the library beside its peers, and print the report
	@scripts/bench

fuzz:           ## build the fuzz targets and run each for FUZZ_SECONDS (60)
	@scripts/fuzz

packages:       ## build the Debian packages into build/package/packages
	@scripts/packages

check-packages: ## try the packages in an empty Debian 12; needs root and takes minutes
	@scripts/check-packages

format:         ## put every source into the house's format
	@scripts/format

tidy:           ## run clang-tidy over the house and the platform
	@scripts/tidy

clean:          ## remove everything that was built
	rm -rf build
