/* Memory protection: what no region covers, address 0 among it, may not be touched. */
#ifndef MPU_H
#define MPU_H

/* Lets the program read and execute its code, read and write its data, heap and devices, and nothing else. */
void mpu_enable(void);

#endif
