include $(sort $(wildcard $(BR2_EXTERNAL_AVRECORDACCESS_PATH)/package/*/*.mk))
