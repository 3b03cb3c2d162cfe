################################################################################
#
# avrecordaccess
#
################################################################################

# This folder lies in the project's own tree, which is built as it stands.
AVRECORDACCESS_VERSION = 1.0.0
AVRECORDACCESS_SITE = $(BR2_EXTERNAL_AVRECORDACCESS_PATH)/../..
AVRECORDACCESS_SITE_METHOD = local
AVRECORDACCESS_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build --exclude out
AVRECORDACCESS_INSTALL_STAGING = YES
AVRECORDACCESS_SUPPORTS_IN_SOURCE_BUILD = NO
AVRECORDACCESS_CONF_OPTS = -DRECORDER_ONLY=ON -DRECORDER_TESTS=OFF

ifeq ($(BR2_STATIC_LIBS),y)
AVRECORDACCESS_CONF_OPTS += -DRECORDER_STATIC=ON
endif

# Only the recorder itself goes onto the camera; libraries and headers stay in staging.
define AVRECORDACCESS_INSTALL_TARGET_CMDS
	DESTDIR=$(TARGET_DIR) $(BR2_CMAKE) --install $(AVRECORDACCESS_BUILDDIR) --prefix /usr --component recorder
endef

define AVRECORDACCESS_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(TARGET_DIR)/usr/share/AVRecordAccess/avrecordaccess.init \
		$(TARGET_DIR)/etc/init.d/S90avrecordaccess
endef

# Each file is there for one way to start it; the other one goes.
define AVRECORDACCESS_REMOVE_UNUSED_SERVICES
	rm -rf $(TARGET_DIR)/usr/share/AVRecordAccess
	$(if $(BR2_INIT_SYSTEMD),,rm -f $(TARGET_DIR)/usr/lib/systemd/system/avrecordaccess.service)
endef
AVRECORDACCESS_TARGET_FINALIZE_HOOKS += AVRECORDACCESS_REMOVE_UNUSED_SERVICES

$(eval $(cmake-package))
