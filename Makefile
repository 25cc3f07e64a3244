# What a newcomer types. Works on a bare Debian 12 with make: what is missing is installed (as root) or
# named (else). The building itself is CMake's; this file only picks presets and folders.

user := $(firstword $(shell id -un 2>/dev/null))
place := $(firstword $(shell printf %s '$(CURDIR)' | cksum))
BUILD ?= $(or $(TMPDIR),/tmp)/brisolt-build-$(user)-$(place)
PREFIX ?= /usr/local
JOBS ?= $(shell nproc)

build_packages := g++ cmake ninja-build pkg-config
tool_packages := $(build_packages) libcli11-dev libssl-dev scdoc
python_packages := python3-dev python3-cffi
# The last of them are programs that the Python package must run; mypy and printcore, which are large, are tested
# where they are.
test_packages := $(tool_packages) $(python_packages) libgtest-dev python3 socat binutils ppp minicom picocom \
    lrzsz ser2net gensio-bin openssl \
    python3-pytest python3-build python3-pip python3-venv python3-serial python3-serial-asyncio grabserial \
    python3-can python3-pymodbus python3-pyvisa-py python3-twisted
cross_packages := $(tool_packages) libgtest-dev python3
bench_packages := $(tool_packages) libboost-dev libserialport-dev zlib1g-dev
lines_packages := $(test_packages) qemu-system-x86 busybox-static kmod
check_packages := $(test_packages) clang-format clang-tidy mypy
docs_packages := $(build_packages) python3 doxygen doxygen-awesome-css
fuzz_packages := $(test_packages) clang

# How long the proofs below take; each has a default of its own.
SECONDS ?= 600
HOURS ?= 2
KILLS ?= 10000

# $(call need,PACKAGES): asks the packaging system only when something is missing.
define need
@command -v dpkg-query >/dev/null || exit 0; missing=; \
for package in $(1); do \
    dpkg-query -W -f '$${db:Status-Abbrev}' $$package 2>/dev/null | grep -q '^ii' || missing="$$missing $$package"; \
done; \
test -n "$$missing" || exit 0; \
test "$$(id -u)" = 0 || { echo "Please install what is missing: apt-get install$$missing" >&2; exit 1; }; \
echo "Installing$$missing"; \
export DEBIAN_FRONTEND=noninteractive PATH="$$PATH:/usr/sbin:/sbin"; \
apt-get -q -o Acquire::Retries=3 update && \
apt-get -q -y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 install --no-install-recommends $$missing </dev/null
endef

# $(call configure,PRESET,FOLDER,OPTIONS)
configure = cmake --preset $(1) -B '$(BUILD)/$(2)' --log-level=WARNING $(3)
# For those who want to use it and not to work on it: their compiler may warn of more than ours.
lenient := --compile-no-warning-as-error
# The thread sanitizer needs addresses where it expects them, which a kernel with much randomisation does not
# give; where a container forbids switching that off, it has to do without.
fixed_addresses = fixed=; ! setarch -R true 2>/dev/null || fixed='setarch -R'; $$fixed
# $(call build,FOLDER,OPTIONS)
build = cmake --build '$(BUILD)/$(1)' --parallel $(JOBS) $(2)
# $(call run_tests,FOLDER): most tests mostly wait, so more of them run than there are processors
run_tests = ctest --test-dir '$(BUILD)/$(1)' --output-on-failure --no-tests=error -j $$(( 2 * $(JOBS) )) --timeout 300

.PHONY: help demo test test-lines bench bench-python docs includes check debian-flags sanitize faults storm fuzz kill soak install clean
.PHONY: deb test-packages test-same-bytes test-i386 cross
.NOTPARALLEL:

amount_of_kill := KILLS
amount_of_soak := HOURS

help:
	@echo 'make demo        see it work'
	@echo 'make test        build and run the tests'
	@echo 'make test-lines  those on the serial drivers of the kernel, in an emulated machine'
	@echo 'make bench       measure it'
	@echo 'make docs        the manual as a site, and the manual pages of the functions'
	@echo 'make bench-python  measure its Python package beside pyserial'
	@echo 'make check       formatting, includes and static analysis'
	@echo 'make debian-flags  the library, the service and the commands as Debian would build them'
	@echo 'make sanitize    the tests under the address, undefined-behaviour and thread sanitizers'
	@echo 'make faults      every call of the host fails once, and from there on (half an hour)'
	@echo 'make storm       everything at once, SECONDS=600 under each sanitizer'
	@echo 'make fuzz        odd inputs, made up for SECONDS=600'
	@echo 'make kill        KILLS=10000 at random moments of a write'
	@echo 'make soak        64 ports for HOURS=2'
	@echo 'make install     into PREFIX ($(PREFIX)), below DESTDIR if given; debug information stays in the build'
	@echo 'make deb         the Debian packages'
	@echo 'make test-packages  installed, tested, upgraded and purged in a minimal system (as root)'
	@echo 'make test-same-bytes  built a second time in another place, they are the same'
	@echo 'make test-i386   the tests in an i386 system (as root)'
	@echo 'make cross       for arm64 and armhf, with the tests that an emulator can run (as root)'
	@echo 'make clean       remove the build folder, $(BUILD)'

demo:
	$(call need,$(tool_packages) socat)
	@$(call configure,release,demo,$(lenient) -DBRISOLT_TESTS=OFF)
	@$(call build,demo,--target brisolt-demo)
	@'$(BUILD)/demo/bin/brisolt-demo'

test:
	$(call need,$(test_packages))
	$(call configure,release,release)
	$(call build,release)
	$(call run_tests,release)

# The machine's kernel is downloaded once and kept in the build folder. Where it cannot run, a line says so.
test-lines:
	$(call need,$(lines_packages))
	$(call configure,release,release)
	@$(call build,release,--target test-lines)

bench:
	$(call need,$(bench_packages))
	$(call configure,release,bench,$(lenient) -DBRISOLT_TESTS=OFF -DBRISOLT_BENCH=ON)
	$(call build,bench,--target brisolt-bench)
	'$(BUILD)/bench/bin/brisolt-bench'

docs:
	$(call need,$(docs_packages))
	@$(call configure,release,docs,-DBRISOLT_TESTS=OFF -DBRISOLT_TOOLS=OFF)
	@$(call build,docs,--target docs man3)

bench-python:
	$(call need,$(tool_packages) $(python_packages) python3-serial)
	$(call configure,release,python,$(lenient) -DBRISOLT_TESTS=OFF)
	$(call build,python,--target bench-python)

includes:
	$(call need,python3)
	python3 cmake/includes.py

check: includes
	$(call need,$(check_packages))
	find . -name .git -prune -o \( -name '*.h' -o -name '*.hpp' -o -name '*.c' -o -name '*.cpp' \) -print0 | \
	    xargs -0 clang-format --dry-run -Werror
	MYPYPATH=python /usr/bin/python3 -m mypy --config-file python/pyproject.toml -p brisolt --cache-dir '$(BUILD)/mypy'
	$(call configure,release,release)
	find src service tools tls -name '*.cpp' -print0 | \
	    xargs -0 -n 1 -P $(JOBS) clang-tidy --quiet --extra-arg=-Wthread-safety \
	        --extra-arg=-Wno-unknown-warning-option -p '$(BUILD)/release'

# With the hardening that distributions build with, at the highest optimisation: both make the compiler see
# more, and what it warns of is an error here.
debian-flags:
	$(call need,$(tool_packages) dpkg-dev)
	eval "$$(dpkg-buildflags --export=sh)"; \
	export CFLAGS="$$CPPFLAGS $$CFLAGS" CXXFLAGS="$$CPPFLAGS $$CXXFLAGS"; \
	$(call configure,release,debian,--fresh -DCMAKE_BUILD_TYPE=Release -DBRISOLT_TESTS=OFF)
	$(call build,debian)

sanitize:
	$(call need,$(test_packages))
	$(call configure,asan,asan)
	$(call build,asan)
	UBSAN_OPTIONS=print_stacktrace=1 $(call run_tests,asan)
	$(call configure,tsan,tsan)
	$(call build,tsan)
	$(fixed_addresses) $(call run_tests,tsan)

# Proofs that take their time; docs/reliability.md says what each shows. The suite runs a short form of each.
faults:
	$(call need,$(test_packages))
	$(call configure,asan,asan)
	$(call build,asan,--target brisolt-faults)
	'$(BUILD)/asan/bin/brisolt-faults' --jobs $$(( 2 * $(JOBS) )) # most of it is waiting

# Blocks of gigabytes are asked for, too, and the thread sanitizer keeps book of every byte that it was told of.
storm:
	$(call need,$(test_packages))
	$(call configure,asan,asan)
	$(call build,asan,--target brisolt-storm)
	'$(BUILD)/asan/bin/brisolt-storm' $(SECONDS)
	$(call configure,tsan,tsan)
	$(call build,tsan,--target brisolt-storm)
	$(fixed_addresses) env TSAN_OPTIONS=memory_limit_mb=4096 '$(BUILD)/tsan/bin/brisolt-storm' $(SECONDS)

# What it finds stays beside the corpus it grew from; what is kept goes into fuzz/corpus, few and small:
# brisolt-fuzz --target=NAME -set_cover_merge=1 -use_counters=0 -max_len=400 fuzz/corpus/NAME GROWN
fuzz:
	$(call need,$(fuzz_packages))
	$(call configure,fuzz,fuzz)
	$(call build,fuzz,--target brisolt-fuzz)
	mkdir -p '$(BUILD)/corpus'
	cd '$(BUILD)/corpus' && for target in $(notdir $(wildcard fuzz/corpus/*)); do \
	    mkdir -p $$target && echo "== $$target" && \
	    '$(BUILD)/fuzz/bin/brisolt-fuzz' --target=$$target -max_len=4096 -print_final_stats=1 -verbosity=0 \
	        -max_total_time=$$(( $(SECONDS) / $(words $(wildcard fuzz/corpus/*)) )) $$target '$(CURDIR)'/fuzz/corpus/$$target || exit 1; \
	done

kill soak:
	$(call need,$(test_packages))
	$(call configure,release,release)
	$(call build,release,--target brisolt-$@)
	'$(BUILD)/release/bin/brisolt-$@' $($(amount_of_$@))

install:
	$(call need,$(tool_packages) $(python_packages))
	$(call configure,release,install,$(lenient) -DBRISOLT_TESTS=OFF '-DCMAKE_INSTALL_PREFIX=$(PREFIX)')
	$(call build,install)
	cmake --install '$(BUILD)/install' --strip
	test "$$(id -u)" != 0 || test -n '$(DESTDIR)' || PATH="$$PATH:/usr/sbin:/sbin" ldconfig

deb:
	$(call need,dpkg-dev lintian)
	JOBS=$(JOBS) packaging/deb.sh '$(BUILD)/deb'

# These three take another mirror of the distribution than the usual one: MIRROR=...
test-packages: deb
	$(call need,mmdebstrap autopkgtest)
	packaging/test_packages.sh '$(BUILD)/deb' '$(BUILD)/packages-root'

test-same-bytes: deb
	JOBS=$(JOBS) packaging/same_bytes.sh '$(BUILD)/deb' '$(BUILD)/deb-again'

test-i386:
	$(call need,mmdebstrap)
	JOBS=$(JOBS) packaging/other_machine.sh i386 '$(BUILD)/i386' '$(test_packages)'

cross:
	$(call need,mmdebstrap)
	for machine in arm64 armhf; do \
	    JOBS=$(JOBS) packaging/other_machine.sh $$machine '$(BUILD)/'$$machine '$(cross_packages)' || exit 1; \
	done

clean:
	rm -rf '$(BUILD)'
