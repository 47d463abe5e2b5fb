// The agent's side of the sampling profiler: the native calls name a library
// that does not exist, and reach the profiler only because it points this
// class at itself while the agent loads. A test program reaches the methods
// below by reflection and gets every session's samples back as text.
using System;
using System.Runtime.InteropServices;

namespace com.tarn.harrowlite.agent.profiling
{
    public static unsafe class TraceProfiler
    {
        private const string Native = "tarn-agent-native";

        [DllImport(Native)] private static extern uint Native_GetCurrentNativeThreadId();
        [DllImport(Native)] private static extern int Native_StartProfilingForMethod(char* moduleName, uint methodToken, int sampleLimit);
        [DllImport(Native)] private static extern int Native_StartProfilingForThread(int nativeThread, int sampleLimit);
        [DllImport(Native)] private static extern int Native_StopProfiling(int index);
        [DllImport(Native)] private static extern int Native_CloseProfilingSession(int index);
        [DllImport(Native)] private static extern int Native_ReadStackSampleCount(int index);
        [DllImport(Native)] private static extern int Native_ReadFailedStackSampleCount(int index);
        [DllImport(Native)] private static extern int Native_ReadStackSnapshotEntryCount(int index);
        [DllImport(Native)] private static extern int Native_ReadStackSnapshots(int index, ulong* functions, ulong* parents, int* depths, int* counts);
        [DllImport(Native)] private static extern void Native_PushSamplingInterval(uint milliseconds);
        [DllImport(Native)] private static extern void Native_PopSamplingInterval();
        [DllImport(Native)] private static extern void Native_GetClassForFunctionId(ulong functionId, char* buffer, int size);
        [DllImport(Native)] private static extern uint Native_GetMetadataTokenForFunctionId(ulong functionId);
        [DllImport(Native)] private static extern int Native_GetModuleAndMetadataTokensForFunctionId(ulong functionId, char* moduleName, uint size, uint* token);

        // The method trace registry, under the decorated names of its exports.
        [StructLayout(LayoutKind.Sequential)]
        public struct MethodData
        {
            public uint state, depth, index, active;
            public long startTime, endTime;
            public ulong methodId;
        }

        [DllImport(Native, EntryPoint = "_Z30Native_RegisterClassIdentifierPDsm")] private static extern int RegisterClassIdentifier(IntPtr name, ulong classId);
        [DllImport(Native, EntryPoint = "_Z26Native_RegisterMethodTracemjmj")] private static extern int RegisterMethodTrace(ulong classId, uint token, ulong enclosingClassId, uint enclosingToken);
        [DllImport(Native, EntryPoint = "_Z28Native_UnregisterMethodTracemj")] private static extern int UnregisterMethodTrace(ulong classId, uint token);
        [DllImport(Native, EntryPoint = "_Z36Native_ToggleEnterLeaveFunctionHooksb")] private static extern int ToggleEnterLeaveFunctionHooks(byte enable);
        [DllImport(Native, EntryPoint = "_Z33Native_MarkEnteredEnclosingMethodmjl")] private static extern void MarkEnteredEnclosingMethod(ulong classId, uint token, long startTime);
        [DllImport(Native, EntryPoint = "_Z30Native_MarkExitEnclosingMethodmj")] private static extern void MarkExitEnclosingMethod(ulong classId, uint token);
        [DllImport(Native, EntryPoint = "_Z19Native_GetTraceDatamjP10MethodDatai")] private static extern int GetTraceData(ulong classId, uint token, MethodData* data, int maximum);

        // Registers method as traced inside enclosing, runs work inside a mark
        // of enclosing, and reads the records: one line a result.
        public static string[] Registry(string className, int method, int enclosing, Action work)
        {
            IntPtr name = Marshal.StringToBSTR(className);
            var lines = new System.Collections.Generic.List<string>();
            lines.Add("register class " + RegisterClassIdentifier(name, 0x5000));
            lines.Add("register method " + RegisterMethodTrace(0x5000, (uint)method, 0x6000, (uint)enclosing));
            lines.Add("hooks on " + ToggleEnterLeaveFunctionHooks(1));
            MarkEnteredEnclosingMethod(0x6000, (uint)enclosing, 1000);
            work();
            var records = new MethodData[4];
            fixed (MethodData* data = records)
                lines.Add("records " + GetTraceData(0x6000, (uint)enclosing, data, 4));
            MarkExitEnclosingMethod(0x6000, (uint)enclosing);
            lines.Add("unregister " + UnregisterMethodTrace(0x5000, (uint)method));
            lines.Add("hooks off " + ToggleEnterLeaveFunctionHooks(0));
            Marshal.FreeBSTR(name);
            var sample = new MethodData { state = 1, depth = 2, index = 3, active = 4, startTime = 5, endTime = 6, methodId = 7 };
            var bytes = new byte[Marshal.SizeOf<MethodData>()];
            MemoryMarshal.Write(bytes, in sample);
            lines.Add("method data " + Convert.ToHexString(bytes));
            return lines.ToArray();
        }

        public static uint CurrentNativeThread() => Native_GetCurrentNativeThreadId();
        public static int StartForThread(int nativeThread, int sampleLimit) => Native_StartProfilingForThread(nativeThread, sampleLimit);
        public static int Stop(int index) => Native_StopProfiling(index);
        public static int Close(int index) => Native_CloseProfilingSession(index);
        public static int SampleCount(int index) => Native_ReadStackSampleCount(index);
        public static int FailedCount(int index) => Native_ReadFailedStackSampleCount(index);
        public static void PushInterval(int milliseconds) => Native_PushSamplingInterval((uint)milliseconds);
        public static void PopInterval() => Native_PopSamplingInterval();

        public static int StartForMethod(string module, int methodToken, int sampleLimit)
        {
            fixed (char* name = module)
                return Native_StartProfilingForMethod(name, (uint)methodToken, sampleLimit);
        }

        // One line a merged sample: function, parent, depth, count, the
        // method's token and module as the function id names them, and the
        // class from the class cache. Null while the session is not readable.
        public static string[] Read(int index)
        {
            int entries = Native_ReadStackSnapshotEntryCount(index);
            if (entries <= 0)
                return entries < 0 ? null : new string[0];
            var functions = new ulong[entries];
            var parents = new ulong[entries];
            var depths = new int[entries];
            var counts = new int[entries];
            int read;
            fixed (ulong* f = functions, p = parents)
            fixed (int* d = depths, c = counts)
                read = Native_ReadStackSnapshots(index, f, p, d, c);
            var lines = new string[read];
            char* text = stackalloc char[1024];
            for (int i = 0; i < read; i++)
            {
                text[0] = '\0';
                Native_GetClassForFunctionId(functions[i], text, 1024);
                string className = new string(text);
                uint token = Native_GetMetadataTokenForFunctionId(functions[i]);
                uint moduleToken = 0;
                text[0] = '\0';
                int hr = Native_GetModuleAndMetadataTokensForFunctionId(functions[i], text, 1024, &moduleToken);
                string module = hr == 0 && moduleToken == token ? System.IO.Path.GetFileName(new string(text)) : "?";
                lines[i] = string.Format("{0:x} {1:x} {2} {3} {4:x} {5} {6}", functions[i], parents[i], depths[i], counts[i], token, module, className);
            }
            return lines;
        }
    }
}
