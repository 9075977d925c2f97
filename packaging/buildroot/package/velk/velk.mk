################################################################################
#
# velk
#
################################################################################

# Not tested in Buildroot itself. packaging/test.sh runs this with make and stubs for Buildroot's macros. It also runs
# the start script with BusyBox.
VELK_VERSION = 1.0.0
VELK_SITE = $(BR2_EXTERNAL_VELK_PATH)/../..
VELK_SITE_METHOD = local
VELK_LICENSE = MIT
VELK_LICENSE_FILES = LICENSE
VELK_INSTALL_STAGING = YES
VELK_CONF_OPTS = -DCMAKE_BUILD_TYPE=Release -DVELK_BUILD_TESTS=OFF
VELK_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build --exclude "/build-*"

define VELK_USERS
	velk -1 velk -1 * - - - Log service
endef

define VELK_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/sysv/velk $(TARGET_DIR)/etc/init.d/S01velk
endef

# CMake installs the unit.
define VELK_INSTALL_INIT_SYSTEMD
	$(INSTALL) -d $(TARGET_DIR)/etc/systemd/system/multi-user.target.wants
	ln -sf /usr/lib/systemd/system/velk.service $(TARGET_DIR)/etc/systemd/system/multi-user.target.wants/
endef

$(eval $(cmake-package))
