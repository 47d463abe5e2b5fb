// Method shapes that a body rewriter has to get right. The assembly is only read.
using System;

namespace RewriteShapes
{
    public class Base
    {
        public int Value;
        public Base() { }
        public Base(int x) { Value = x; }
    }

    public class Derived : Base
    {
        public static int Counter;

        static Derived() { Counter = 7; }

        public Derived() : base(1) { Value += 2; }

        public Derived(int x) : this() { Value *= x; }

        public int Instance(int a, string b) => a + b.Length + Value;

        public static int Add(int a, int b) => a + b;
    }

    public struct Point
    {
        public int X;
        public int Y;

        public Point(int x, int y) { X = x; Y = y; }

        public int Sum() => X + Y;

        public void Move(ref int dx, out int dy, in Point other)
        {
            X += dx + other.X;
            dy = Y;
            dx = 0;
        }
    }

    public readonly struct Frozen
    {
        public readonly int A;
        public Frozen(int a) { A = a; }
    }

    public ref struct Stacky
    {
        public int A;
    }

    public struct Pair<T1, T2>
    {
        public T1 First;
        public T2 Second;

        public T1 GetFirst() => First;

        public void Set(T1 a, T2 b) { First = a; Second = b; }
    }

    public struct Wide<T0, T1, T2, T3, T4, T5, T6, T7, T8, T9, T10>
    {
        public T0 A;
        public T10 K;

        public T0 First() => A;

        public void Take(T10 k) { K = k; }
    }

    public class Generic<T>
    {
        public T Echo(T v) => v;

        public static U Pick<U>(U a, U b, bool first) => first ? a : b;

        public Pair<T, int> Wrap(T v) => new Pair<T, int> { First = v, Second = 1 };

        public Generic<T> Self(Generic<T> other) => other ?? this;
    }

    public static class Shapes
    {
        public static int Sink;

        public static void Empty() { }

        public static void Throws() => throw new InvalidOperationException("no");

        public static int ManyReturns(int x)
        {
            if (x < 0) return -1;
            if (x == 0) return 0;
            Sink = x;
            return 1;
        }

        public static string Switch(int x)
        {
            switch (x)
            {
                case 0: return "a";
                case 1: return "b";
                case 2: return "c";
                case 3: return "d";
                default: return "e";
            }
        }

        public static int Nested(int x)
        {
            try
            {
                try
                {
                    x = checked(x + 1);
                }
                catch (ArgumentException) when (x > 3)
                {
                    x--;
                }
                finally
                {
                    Sink = x;
                }
            }
            catch (Exception)
            {
                x = -1;
            }
            return x;
        }

        public static void LoopForever()
        {
            while (true) { Sink++; }
        }

        public static ref int RefReturn(int[] a) => ref a[0];

        public static int TypedRef(TypedReference r) => __refvalue(r, int);

        public static int StackOnly(Stacky s, int x) => s.A + x;

        public static int ReadOnlyParam(Frozen f, int x) => f.A + x;

        public static nint NativeReturn(int x) => x;

        public static int NativeParam(int a, nint x) => a + (int)x;

        public static double AllPrimitives(bool a, char b, sbyte c, byte d, short e, ushort f, int g, uint h,
                                           long i, ulong j, float k, double l)
            => (a ? 1 : 0) + b + c + d + e + f + g + h + i + (double)j + k + l;

        public static object Mixed(string s, object o, int[] arr, Point p, Pair<int, string> pair, Generic<int> g,
                                   DateTime? n)
            => s ?? o ?? arr ?? (object)p.X ?? pair.Second ?? g ?? (object)n;

        public static Point ValueResult(int x) => new Point(x, x);

        public static Pair<int, int> GenericValueResult(int x) => new Pair<int, int> { First = x };

        public static unsafe int Pointer(int* p) => *p;
    }
}
