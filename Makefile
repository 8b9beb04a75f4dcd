# The front door. Every target installs what it needs (Debian packages, through scripts/bootstrap) and builds below
# build/<preset>; programs for people land in bin/.

SECONDS_TO_RECORD ?= 10
AVSYNC_SECONDS ?= 60
BENCH_SECONDS ?= 30
UPLOAD_MEBIBYTES ?= 1024
ENDURANCE_MINUTES ?= 10
TORTURE_ROUNDS ?= 20
JOBS ?= $(shell nproc)

.PHONY: help record test torture bench lint build clean
.DEFAULT_GOAL := help

help:
	@echo "make record   record the screen for $(SECONDS_TO_RECORD) seconds (SECONDS_TO_RECORD=…), on a private desktop when there is none"
	@echo "make test     build everything and run every test"
	@echo "make torture  kill recordings at random moments and recover them (TORTURE_ROUNDS=…)"
	@echo "make bench    measure cost, picture quality, synchrony, endurance and uploads (BENCH_SECONDS=…, AVSYNC_SECONDS=…,"
	@echo "              UPLOAD_MEBIBYTES=…, ENDURANCE_MINUTES=…)"
	@echo "make lint     formatting, clang-tidy, room boundaries, thread-safety analysis"
	@echo "make build    the programs, in bin/"
	@echo "make clean    remove everything that was built"

build:
	scripts/bootstrap build
	cmake --preset release
	cmake --build --preset release --parallel $(JOBS) --target quillbeam demo-scene quillbeam-upload-service
	mkdir -p bin
	install $(addprefix build/release/bin/,quillbeam demo-scene quillbeam-upload-service) bin/

record: build
	scripts/record-demo $(SECONDS_TO_RECORD)

test:
	scripts/bootstrap build desktop
	cmake --preset dev
	cmake --build --preset dev --parallel $(JOBS)
	ctest --test-dir build/dev --parallel $(JOBS) --output-on-failure

torture:
	scripts/bootstrap build desktop
	cmake --preset dev
	cmake --build --preset dev --parallel $(JOBS) --target quillbeam demo-scene quillbeam-upload-service
	QUILLBEAM_BIN=$(CURDIR)/build/dev/bin python3 -B tests/end_to_end/torture.py $(TORTURE_ROUNDS)

bench:
	scripts/bootstrap build desktop
	cmake --preset release
	cmake --build --preset release --parallel $(JOBS)
	benchmarks/whole_process/run-all build/release/bin $(BENCH_SECONDS) $(AVSYNC_SECONDS) $(UPLOAD_MEBIBYTES) $(ENDURANCE_MINUTES)

lint:
	scripts/bootstrap build lint
	scripts/lint $(JOBS)

clean:
	rm -rf build bin
